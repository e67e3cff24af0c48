#include "control/client_connection.h"

#include <string>

#include "base/text.h"
#include "config/json.h"
#include "control/dispatch.h"
#include "control/event_stream.h"
#include "control/frames.h"
#include "control/reply.h"

namespace kestrelon {
namespace {

// The request in a frame; null when it is none, with the reply to that.
Json RequestFromFrame(const std::string& frame, Json& refusal) {
  Json request;
  std::string error;  // stays empty for a value that is only no object
  if (Json::Parse(frame, request, &error) && request.IsObject()) return request;
  refusal = ErrorReply(L"invalid request: " + WideFromUtf8(error));
  return {};
}

// Reads and answers one request. False when the connection is to end.
bool ServeRequest(const platform::Pipe& pipe) {
  Json reply;
  Json request;
  {
    std::string frame;  // may be large: not kept while the command waits for its guards
    if (!ReadFrame(pipe, frame)) return false;
    request = RequestFromFrame(frame, reply);
  }
  if (request.Get("cmd").text() == "subscribe") {
    StreamEvents(pipe);
    return false;
  }
  if (request.IsObject()) reply = DispatchCommand(request);
  return WriteFrame(pipe, reply.Dump(false));
}

}  // namespace

void ControlClient(std::list<platform::Pipe>::iterator client) {
  while (!TheControlPipe.PipeStop && ServeRequest(*client)) {
  }
  // What a client does not read holds this thread up until it leaves or the stop cancels the wait.
  (void)platform::FlushPipe(*client);
  (void)platform::DisconnectPipeClient(*client);

  GuardLock lock(TheControlPipe.SubscriberGuard);
  TheControlPipe.clients.erase(client);
  TheControlPipe.wake.WakeAll();
}

}  // namespace kestrelon

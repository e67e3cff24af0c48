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
bool ServeRequest(const PipeConnection& client) {
  Json reply;
  Json request;
  {
    std::string frame;  // may be large: not kept while the command waits for its guards
    if (!ReadFrame(client.pipe, frame)) return false;
    request = RequestFromFrame(frame, reply);
  }
  if (request.Get("cmd").text() == "subscribe") {
    StreamEvents(client);
    return false;
  }
  if (request.IsObject()) reply = DispatchCommand(request);
  return WriteFrame(client.pipe, reply.Dump(false));
}

}  // namespace

void ControlClient(PipeConnection& client) {
  while (!*client.PipeStop && ServeRequest(client)) {
  }
}

}  // namespace kestrelon

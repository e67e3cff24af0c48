#include "simulation/bench/stream_listener.h"

#include <utility>

namespace simulation {

using kestrelon::platform::kSuccess;

Code StreamListener::Start(std::uint64_t stream, StreamHandler handler,
                           std::unique_ptr<StreamListener>& listener) {
  PipeChannel channel;
  if (const Code code = ConnectToEngine(channel)) return code;
  WireWriter request = channel.Begin();
  request.U8(static_cast<std::uint8_t>(Operation::kListen));
  request.U64(stream);
  WireReader reply;
  if (!channel.Send() || !channel.Receive(reply)) return kCallFailed;
  const Code code = reply.U32();
  if (code != kSuccess) return code;
  listener.reset(new StreamListener(stream, std::move(channel), std::move(handler)));
  return kSuccess;
}

StreamListener::StreamListener(std::uint64_t stream, PipeChannel channel, StreamHandler handler)
    : stream_(stream),
      channel_(std::move(channel)),
      handler_(std::move(handler)),
      thread_([this] { Run(); }) {}

void StreamListener::Run() {
  WireReader message;
  while (channel_.Receive(message)) {
    handler_(message);
    if (!message.Finished()) return;
  }
}

}  // namespace simulation

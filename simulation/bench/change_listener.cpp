#include "simulation/bench/change_listener.h"

#include <utility>

namespace simulation {

using kestrelon::platform::kSuccess;

Code FilterChangeListener::Start(std::uint64_t subscription, ChangeCallback callback,
                                 std::unique_ptr<FilterChangeListener>& listener) {
  PipeChannel channel;
  if (const Code code = ConnectToEngine(channel)) return code;
  WireWriter request = channel.Begin();
  request.U8(static_cast<std::uint8_t>(Operation::kListen));
  request.U64(subscription);
  WireReader reply;
  if (!channel.Send() || !channel.Receive(reply)) return kCallFailed;
  const Code code = reply.U32();
  if (code != kSuccess) return code;
  listener.reset(new FilterChangeListener(subscription, std::move(channel), std::move(callback)));
  return kSuccess;
}

FilterChangeListener::FilterChangeListener(std::uint64_t subscription, PipeChannel channel,
                                           ChangeCallback callback)
    : subscription_(subscription),
      channel_(std::move(channel)),
      callback_(std::move(callback)),
      thread_([this] { Run(); }) {}

void FilterChangeListener::Run() {
  WireReader message;
  while (channel_.Receive(message)) {
    FilterChange change;
    change.added = message.U8() != 0;
    change.key = message.Key();
    change.id = message.U64();
    if (!message.Finished()) return;
    callback_(change);
  }
}

}  // namespace simulation

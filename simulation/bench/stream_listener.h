// The receiving side of a subscription.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

#include "simulation/bench/engine_client.h"

namespace simulation {

// Reads one message, and tells whom it is for.
using StreamHandler = std::function<void(WireReader& message)>;

// Calls its handler on a thread of its own for each message, until the subscription ends at BFE: by
// Unsubscribe, by the end of its session or with BFE itself. A malformed message ends it too.
class StreamListener {
 public:
  [[nodiscard]] static Code Start(std::uint64_t stream, StreamHandler handler,
                                  std::unique_ptr<StreamListener>& listener);
  // Waits for the end, and so for a running handler: end the subscription first.
  ~StreamListener() { thread_.join(); }

  std::uint64_t stream() const { return stream_; }

 private:
  StreamListener(std::uint64_t stream, PipeChannel channel, StreamHandler handler);
  void Run();

  const std::uint64_t stream_;
  PipeChannel channel_;  // of the thread alone
  const StreamHandler handler_;
  std::thread thread_;
};

}  // namespace simulation

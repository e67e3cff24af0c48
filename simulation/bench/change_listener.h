// The receiving side of a subscription to filter changes.
#pragma once

#include <cstdint>
#include <memory>
#include <thread>

#include "simulation/bench/engine_client.h"
#include "simulation/engine/change_notifier.h"

namespace simulation {

// Calls back on a thread of its own for each change, until the subscription ends at BFE: by
// Unsubscribe, by the end of its session or with BFE itself.
class FilterChangeListener {
 public:
  [[nodiscard]] static Code Start(std::uint64_t subscription, ChangeCallback callback,
                                  std::unique_ptr<FilterChangeListener>& listener);
  // Waits for the end, and so for a running callback: end the subscription first.
  ~FilterChangeListener() { thread_.join(); }

  std::uint64_t subscription() const { return subscription_; }

 private:
  FilterChangeListener(std::uint64_t subscription, PipeChannel channel, ChangeCallback callback);
  void Run();

  const std::uint64_t subscription_;
  PipeChannel channel_;  // of the thread alone
  const ChangeCallback callback_;
  std::thread thread_;
};

}  // namespace simulation

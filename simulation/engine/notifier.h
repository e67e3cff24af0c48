// Calls subscribers on a thread of its own, in the order in which there was something to tell.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include "simulation/engine/subscription.h"

namespace simulation {

// Nothing is lost: the platform promises only its best effort, but tests count.
class Notifier {
 public:
  Notifier() = default;
  ~Notifier();
  Notifier(const Notifier&) = delete;
  Notifier& operator=(const Notifier&) = delete;

  void Add(SubscriptionId id);
  // Queues a call to a subscriber; one for an unknown subscription is dropped.
  void Post(SubscriptionId id, std::function<void()> call);
  // No further call begins, but a running one isn't waited for.
  void Remove(SubscriptionId id);
  // Waits until no call to this subscriber runs; returns at once within one.
  void WaitForCallback(SubscriptionId id);
  // Waits until all that was posted is delivered; returns at once within a call.
  void WaitForAll();

 private:
  void Run();

  std::mutex mutex_;  // a leaf, never held during a call
  std::condition_variable wake_;
  std::condition_variable call_done_;
  std::set<SubscriptionId> subscribed_;
  std::deque<std::pair<SubscriptionId, std::function<void()>>> queue_;
  SubscriptionId running_ = 0;
  bool stopping_ = false;
  std::thread thread_;  // started by the first subscription
};

}  // namespace simulation

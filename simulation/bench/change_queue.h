// The way of filter changes from the engine's thread to the connections on which they leave.
#pragma once

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>

#include "simulation/engine/change_notifier.h"

namespace simulation {

// The changes of one subscription that are still to be sent. Never blocks the engine's thread.
class ChangeQueue {
 public:
  void Push(const FilterChange& change);
  // What is queued is still taken; then Take gives false.
  void Close();
  // Waits for a change; false after the end.
  [[nodiscard]] bool Take(FilterChange& change);

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<FilterChange> changes_;
  bool closed_ = false;
};

// The open subscriptions by the engine's number, where the listening connections find them.
class ChangeQueues {
 public:
  void Add(SubscriptionId id, std::shared_ptr<ChangeQueue> queue);
  // Null for an unknown number.
  [[nodiscard]] std::shared_ptr<ChangeQueue> Find(SubscriptionId id);
  // Closes the queue and forgets it.
  void Remove(SubscriptionId id);

 private:
  std::mutex mutex_;
  std::map<SubscriptionId, std::shared_ptr<ChangeQueue>> queues_;
};

}  // namespace simulation

// Delivers filter changes to subscribers on a thread of its own.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "base/guid.h"

namespace simulation {

using SubscriptionId = std::uint64_t;

struct FilterChange {
  bool added = false;  // otherwise deleted
  kestrelon::Guid key;
  std::uint64_t id = 0;
};

using ChangeCallback = std::function<void(const FilterChange&)>;

class ChangeNotifier {
 public:
  ChangeNotifier() = default;
  ~ChangeNotifier();
  ChangeNotifier(const ChangeNotifier&) = delete;
  ChangeNotifier& operator=(const ChangeNotifier&) = delete;

  void Add(SubscriptionId id, ChangeCallback callback);
  // Queues a change; one for an unknown subscription is dropped.
  void Post(SubscriptionId id, const FilterChange& change);
  // No further callback begins, but a running one isn't waited for.
  void Remove(SubscriptionId id);
  // Waits until no callback of this subscription runs; returns at once within a callback.
  void WaitForCallback(SubscriptionId id);
  // Waits until all that was posted is delivered; returns at once within a callback.
  void WaitForAll();

 private:
  void Run();

  std::mutex mutex_;  // a leaf, never held during a callback
  std::condition_variable wake_;
  std::condition_variable callback_done_;
  std::map<SubscriptionId, ChangeCallback> callbacks_;
  std::deque<std::pair<SubscriptionId, FilterChange>> queue_;
  SubscriptionId running_ = 0;
  bool stopping_ = false;
  std::thread thread_;  // started by the first subscription
};

}  // namespace simulation

#include "simulation/bench/change_queue.h"

#include <utility>

namespace simulation {

void ChangeQueue::Push(const FilterChange& change) {
  const std::lock_guard lock(mutex_);
  if (closed_) return;
  changes_.push_back(change);
  wake_.notify_one();
}

void ChangeQueue::Close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  wake_.notify_one();
}

bool ChangeQueue::Take(FilterChange& change) {
  std::unique_lock lock(mutex_);
  wake_.wait(lock, [this] { return closed_ || !changes_.empty(); });
  if (changes_.empty()) return false;
  change = changes_.front();
  changes_.pop_front();
  return true;
}

void ChangeQueues::Add(SubscriptionId id, std::shared_ptr<ChangeQueue> queue) {
  const std::lock_guard lock(mutex_);
  queues_[id] = std::move(queue);
}

std::shared_ptr<ChangeQueue> ChangeQueues::Find(SubscriptionId id) {
  const std::lock_guard lock(mutex_);
  const auto found = queues_.find(id);
  return found == queues_.end() ? nullptr : found->second;
}

void ChangeQueues::Remove(SubscriptionId id) {
  const std::lock_guard lock(mutex_);
  const auto found = queues_.find(id);
  if (found == queues_.end()) return;
  found->second->Close();
  queues_.erase(found);
}

}  // namespace simulation

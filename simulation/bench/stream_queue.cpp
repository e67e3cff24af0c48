#include "simulation/bench/stream_queue.h"

#include <utility>

namespace simulation {

void StreamQueue::Push(Bytes message) {
  const std::lock_guard lock(mutex_);
  if (closed_ || messages_.size() >= most_) return;
  messages_.push_back(std::move(message));
  wake_.notify_one();
}

void StreamQueue::Close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  wake_.notify_one();
}

bool StreamQueue::Take(Bytes& message) {
  std::unique_lock lock(mutex_);
  wake_.wait(lock, [this] { return closed_ || !messages_.empty(); });
  if (messages_.empty()) return false;
  message = std::move(messages_.front());
  messages_.pop_front();
  return true;
}

StreamId StreamQueues::Add(std::shared_ptr<StreamQueue> queue) {
  const std::lock_guard lock(mutex_);
  queues_[++last_id_] = std::move(queue);
  return last_id_;
}

std::shared_ptr<StreamQueue> StreamQueues::Find(StreamId id) {
  const std::lock_guard lock(mutex_);
  const auto found = queues_.find(id);
  return found == queues_.end() ? nullptr : found->second;
}

void StreamQueues::Remove(StreamId id) {
  const std::lock_guard lock(mutex_);
  const auto found = queues_.find(id);
  if (found == queues_.end()) return;
  found->second->Close();
  queues_.erase(found);
}

}  // namespace simulation

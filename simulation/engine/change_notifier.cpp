#include "simulation/engine/change_notifier.h"

namespace simulation {

ChangeNotifier::~ChangeNotifier() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  if (thread_.joinable()) thread_.join();
}

void ChangeNotifier::Add(SubscriptionId id, ChangeCallback callback) {
  const std::lock_guard lock(mutex_);
  callbacks_[id] = std::move(callback);
  if (!thread_.joinable()) thread_ = std::thread([this] { Run(); });
}

void ChangeNotifier::Post(SubscriptionId id, const FilterChange& change) {
  const std::lock_guard lock(mutex_);
  if (callbacks_.count(id) == 0) return;
  queue_.emplace_back(id, change);
  wake_.notify_one();
}

void ChangeNotifier::Remove(SubscriptionId id) {
  const std::lock_guard lock(mutex_);
  callbacks_.erase(id);
}

void ChangeNotifier::WaitForCallback(SubscriptionId id) {
  std::unique_lock lock(mutex_);
  if (thread_.get_id() == std::this_thread::get_id()) return;
  callback_done_.wait(lock, [&] { return running_ != id; });
}

void ChangeNotifier::WaitForAll() {
  std::unique_lock lock(mutex_);
  if (thread_.get_id() == std::this_thread::get_id()) return;
  callback_done_.wait(lock, [&] { return running_ == 0 && queue_.empty(); });
}

void ChangeNotifier::Run() {
  std::unique_lock lock(mutex_);
  while (true) {
    wake_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
    if (stopping_) return;
    const auto [id, change] = queue_.front();
    queue_.pop_front();
    const auto found = callbacks_.find(id);
    if (found != callbacks_.end()) {
      const ChangeCallback callback = found->second;
      running_ = id;
      lock.unlock();
      callback(change);
      lock.lock();
      running_ = 0;
    }
    callback_done_.notify_all();
  }
}

}  // namespace simulation

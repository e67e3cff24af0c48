#include "simulation/engine/notifier.h"

namespace simulation {

Notifier::~Notifier() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  if (thread_.joinable()) thread_.join();
}

void Notifier::Add(SubscriptionId id) {
  const std::lock_guard lock(mutex_);
  subscribed_.insert(id);
  if (!thread_.joinable()) thread_ = std::thread([this] { Run(); });
}

void Notifier::Post(SubscriptionId id, std::function<void()> call) {
  const std::lock_guard lock(mutex_);
  if (!subscribed_.contains(id)) return;
  queue_.emplace_back(id, std::move(call));
  wake_.notify_one();
}

void Notifier::Remove(SubscriptionId id) {
  const std::lock_guard lock(mutex_);
  subscribed_.erase(id);
}

void Notifier::WaitForCallback(SubscriptionId id) {
  std::unique_lock lock(mutex_);
  if (thread_.get_id() == std::this_thread::get_id()) return;
  call_done_.wait(lock, [&] { return running_ != id; });
}

void Notifier::WaitForAll() {
  std::unique_lock lock(mutex_);
  if (thread_.get_id() == std::this_thread::get_id()) return;
  call_done_.wait(lock, [&] { return running_ == 0 && queue_.empty(); });
}

void Notifier::Run() {
  std::unique_lock lock(mutex_);
  while (true) {
    wake_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
    if (stopping_) return;
    const auto [id, call] = std::move(queue_.front());
    queue_.pop_front();
    if (subscribed_.contains(id)) {
      running_ = id;
      lock.unlock();
      call();
      lock.lock();
      running_ = 0;
    }
    call_done_.notify_all();
  }
}

}  // namespace simulation

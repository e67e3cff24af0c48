// The threads of this process: how many there are, and where each stands when nothing goes on.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>

namespace kestrelon::test {

[[nodiscard]] std::size_t Threads();

// Ends the process when it outlives the limit, with the stack of each thread on standard error.
class Watchdog {
 public:
  explicit Watchdog(std::chrono::seconds limit);
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool over_ = false;  // guarded by mutex_
  std::thread thread_;
};

}  // namespace kestrelon::test

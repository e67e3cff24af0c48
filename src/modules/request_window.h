// How many requests a module may make: some in each second.
#pragma once

#include <cstdint>

namespace kestrelon {

// A fixed window of time, followed by one that opens with the next request. One thread.
class RequestWindow {
 public:
  // Opens the first window, at a tick in ms.
  explicit RequestWindow(std::uint64_t now) : opened_(now) {}

  // Counts a request. False when it is one too many.
  [[nodiscard]] bool Admit(std::uint64_t now) {
    if (now - opened_ >= kWindowMs) {
      opened_ = now;
      count_ = 0;
    }
    return ++count_ <= kMostRequests;
  }

 private:
  static constexpr std::uint64_t kWindowMs = 1000;
  static constexpr std::uint32_t kMostRequests = 20;

  std::uint64_t opened_;
  std::uint32_t count_ = 0;
};

}  // namespace kestrelon

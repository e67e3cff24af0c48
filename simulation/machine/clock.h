// The machine's clocks, held still until a test moves them or lets them run.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>

namespace simulation {

// 2026-11-21 12:00:00 UTC in 100 ns steps since 1601-01-01.
inline constexpr std::int64_t kFirstSystemTime = 134'397'360'000'000'000;
inline constexpr std::uint64_t kFirstTick = 600'000;
// A service comes up about so long after the machine was switched on.
inline constexpr std::uint64_t kTickAfterRestart = 30'000;

// Starts held at kFirstSystemTime and kFirstTick. Any thread.
class Clock {
 public:
  // Moves both clocks forward.
  void Advance(std::uint64_t milliseconds);

  // Both clocks follow real time from now on.
  void Run();

  // Both clocks stand still from now on.
  void Hold();

  bool held() const;

  std::uint64_t Tick() const;
  // The tick in steps of 100 ns.
  std::uint64_t Counter() const;
  std::int64_t SystemTime() const;

  // Spends the time: a held clock is moved forward at once, a running one is slept by.
  void Sleep(std::uint64_t milliseconds);

  // The machine was switched on again: the tick starts anew, the wall clock goes on.
  void RestartTick();

 private:
  // Since running_since_; 0 while held.
  std::uint64_t RunSteps() const;
  std::uint64_t RunMilliseconds() const;

  mutable std::mutex mutex_;  // guards all below
  std::uint64_t tick_ = kFirstTick;
  std::int64_t time_ = kFirstSystemTime;
  std::optional<std::chrono::steady_clock::time_point> running_since_;
};

}  // namespace simulation

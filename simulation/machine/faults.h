// Which of the machine's calls fail: a test plans faults here, and each seam call that answers with
// a code asks first. A machine without power fails every call.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/codes.h"

namespace simulation {

using kestrelon::platform::Code;

// What every call answers while the machine has no power (ERROR_IO_DEVICE).
inline constexpr Code kPowerLost = 1117;

// Whose calls a planned fault counts. Of threads that run side by side, which comes first is not
// the same twice; what one thread calls is.
enum class CallsOf { kAnyThread, kThisThread, kOtherThreads };

// Faults by the place of a call in the run or by the name of its seam function ("OpenFile",
// "Sha256::Begin"). Only calls that answer with a code are counted and can fail. Any thread.
class Faults {
 public:
  // The n-th counted call from now, whichever it is, fails once; n counts from 1. Restarts calls()
  // and fired().
  void FailNth(std::uint64_t n, Code code, CallsOf whose = CallsOf::kAnyThread);

  // The next call of this name fails.
  void FailOnce(std::string_view name, Code code) { FailNthOf(name, 1, code); }

  // The n-th call of this name from now fails once.
  void FailNthOf(std::string_view name, std::uint64_t n, Code code);

  // Each call of this name fails until Clear.
  void FailAlways(std::string_view name, Code code);

  // Does something once, right before the next call of this name: what another program does at that
  // moment. The action may use the machine.
  void RunBefore(std::string_view name, std::function<void()> action);

  // Forgets all planned faults and actions and restarts calls() and fired().
  void Clear();

  // Calls counted since the last FailNth or Clear.
  std::uint64_t calls() const;

  // The names of those that a FailNth which has not struck counted, in their order.
  std::vector<std::string> counted() const;

  // Whether a planned fault has struck since then, and the name of the last call it struck.
  bool fired() const;
  std::string fired_name() const;

  // Counts a call and gives the code that it fails with, or success. For the seam.
  [[nodiscard]] Code Next(std::string_view name);

  // Does what is planned before a call that can't fail, and counts nothing. For the seam.
  void Announce(std::string_view name);

  // Switches the machine's power; without it Next answers kPowerLost and counts nothing.
  void SetPower(bool on);
  bool power_lost() const { return !power_; }

  // What ends the waits of the machine's other parts when the power goes. Called in the middle of a
  // call of the file system; set before any thread uses the machine.
  void WhenPowerGoes(std::function<void()> action) { when_power_goes_ = std::move(action); }

 private:
  struct NamedFault {
    std::uint64_t calls_left = 0;  // 1: the next call fails
    Code once = kestrelon::platform::kSuccess;
    Code always = kestrelon::platform::kSuccess;
  };

  // All below need the guard.

  // Counts a call for FailNth; whether it is the one.
  bool IsNth(std::string_view name);
  Code Strike(std::string_view name, Code code);

  // Takes the guard itself.
  std::function<void()> TakeAction(std::string_view name);

  std::atomic<bool> power_ = true;         // atomic: read by every call, set in the middle of one
  std::function<void()> when_power_goes_;  // set once before any thread uses the machine

  mutable std::mutex mutex_;  // guards all below
  std::uint64_t calls_ = 0;
  std::uint64_t nth_left_ = 0;  // 1: the next call fails; 0 for none
  CallsOf nth_of_ = CallsOf::kAnyThread;
  std::thread::id planner_;  // of the fault
  std::vector<std::string> counted_;
  Code nth_code_ = kestrelon::platform::kSuccess;
  std::map<std::string, NamedFault, std::less<>> named_;
  std::map<std::string, std::function<void()>, std::less<>> actions_;
  bool fired_ = false;
  std::string fired_name_;
};

}  // namespace simulation

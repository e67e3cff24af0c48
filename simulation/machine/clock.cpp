#include "simulation/machine/clock.h"

#include <thread>

#include "platform/clock.h"
#include "simulation/machine/machine.h"

namespace simulation {
namespace {

constexpr std::int64_t kStepsPerMillisecond = 10'000;
constexpr std::int64_t kStepsPerSecond = 10'000'000;
// From 1601-01-01 to 1970-01-01.
constexpr std::int64_t kSecondsBeforeUnixTime = 11'644'473'600;

}  // namespace

std::uint64_t Clock::RunSteps() const {
  using Steps = std::chrono::duration<std::uint64_t, std::ratio<1, kStepsPerSecond>>;
  if (!running_since_) return 0;
  return std::chrono::duration_cast<Steps>(std::chrono::steady_clock::now() - *running_since_)
      .count();
}

std::uint64_t Clock::RunMilliseconds() const {
  return RunSteps() / std::uint64_t{kStepsPerMillisecond};
}

void Clock::Advance(std::uint64_t milliseconds) {
  const std::lock_guard lock(mutex_);
  tick_ += milliseconds;
  time_ += static_cast<std::int64_t>(milliseconds) * kStepsPerMillisecond;
}

void Clock::Run() {
  const std::lock_guard lock(mutex_);
  if (!running_since_) running_since_ = std::chrono::steady_clock::now();
}

void Clock::Hold() {
  const std::lock_guard lock(mutex_);
  const std::uint64_t elapsed = RunMilliseconds();
  running_since_.reset();
  tick_ += elapsed;
  time_ += static_cast<std::int64_t>(elapsed) * kStepsPerMillisecond;
}

bool Clock::held() const {
  const std::lock_guard lock(mutex_);
  return !running_since_;
}

std::uint64_t Clock::Tick() const {
  const std::lock_guard lock(mutex_);
  return tick_ + RunMilliseconds();
}

std::uint64_t Clock::Counter() const {
  const std::lock_guard lock(mutex_);
  return tick_ * std::uint64_t{kStepsPerMillisecond} + RunSteps();
}

std::int64_t Clock::SystemTime() const {
  const std::lock_guard lock(mutex_);
  return time_ + static_cast<std::int64_t>(RunMilliseconds()) * kStepsPerMillisecond;
}

void Clock::Sleep(std::uint64_t milliseconds) {
  if (held()) {
    Advance(milliseconds);
  } else {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
  }
}

void Clock::RestartTick() {
  const std::lock_guard lock(mutex_);
  tick_ = kTickAfterRestart - RunMilliseconds();  // unsigned: the sum in Tick() comes out right
}

}  // namespace simulation

namespace kestrelon::platform {

using simulation::TheMachine;

std::uint64_t TickMilliseconds() {
  return TheMachine().clock.Tick();
}

std::uint64_t PerformanceCounter() {
  return TheMachine().clock.Counter();
}

std::int64_t SystemTime() {
  return TheMachine().clock.SystemTime();
}

std::optional<CalendarTime> LocalTime() {
  return LocalTimeOf(SystemTime());
}

// The machine stands in a zone without an offset.
std::optional<CalendarTime> LocalTimeOf(std::int64_t time) {
  using namespace std::chrono;
  if (time < 0) return std::nullopt;
  const sys_seconds moment(
      seconds(time / simulation::kStepsPerSecond - simulation::kSecondsBeforeUnixTime));
  const sys_days day = floor<days>(moment);
  const year_month_day date(day);
  const hh_mm_ss clock(moment - day);
  CalendarTime local;
  local.year = static_cast<unsigned>(static_cast<int>(date.year()));
  local.month = static_cast<unsigned>(date.month());
  local.day = static_cast<unsigned>(date.day());
  local.hour = static_cast<unsigned>(clock.hours().count());
  local.minute = static_cast<unsigned>(clock.minutes().count());
  local.second = static_cast<unsigned>(clock.seconds().count());
  return local;
}

void SleepMilliseconds(std::uint32_t milliseconds) {
  // A thread that tries again after each sleep must not take the processor from those who end it.
  if (TheMachine().faults.power_lost()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  TheMachine().clock.Sleep(milliseconds);
}

}  // namespace kestrelon::platform

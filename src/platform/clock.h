// The machine's clocks. Any thread; nothing here fails or blocks but SleepMilliseconds.
#pragma once

#include <cstdint>
#include <optional>

namespace kestrelon::platform {

// Milliseconds since the machine started.
std::uint64_t TickMilliseconds();

// A counter of unknown origin and step, finer than the above.
std::uint64_t PerformanceCounter();

// The wall clock: 100 ns steps since 1601-01-01 UTC.
std::int64_t SystemTime();
inline constexpr std::int64_t kTimeStepsPerMs = 10000;

struct CalendarTime {
  unsigned year = 0;
  unsigned month = 0;  // 1..12
  unsigned day = 0;
  unsigned hour = 0;
  unsigned minute = 0;
  unsigned second = 0;
};

// The wall clock as local calendar time; nothing when the platform can't convert it.
std::optional<CalendarTime> LocalTime();

// A time of the wall clock (100 ns steps since 1601-01-01 UTC) as local calendar time; nothing when
// the platform can't convert it.
std::optional<CalendarTime> LocalTimeOf(std::int64_t time);

// Suspends the calling thread.
void SleepMilliseconds(std::uint32_t milliseconds);

}  // namespace kestrelon::platform

#include "platform/clock.h"

#include "platform/windows/windows_headers.h"

namespace kestrelon::platform {

std::uint64_t TickMilliseconds() {
  return GetTickCount64();
}

std::uint64_t PerformanceCounter() {
  LARGE_INTEGER counter{};
  QueryPerformanceCounter(&counter);
  return static_cast<std::uint64_t>(counter.QuadPart);
}

std::int64_t SystemTime() {
  FILETIME time{};
  GetSystemTimeAsFileTime(&time);
  return static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
}

std::optional<CalendarTime> LocalTime() {
  return LocalTimeOf(SystemTime());
}

std::optional<CalendarTime> LocalTimeOf(std::int64_t time) {
  const auto steps = static_cast<std::uint64_t>(time);
  const FILETIME moment{static_cast<DWORD>(steps), static_cast<DWORD>(steps >> 32)};
  SYSTEMTIME utc{};
  SYSTEMTIME local{};
  if (!FileTimeToSystemTime(&moment, &utc)) return std::nullopt;
  if (!SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local)) return std::nullopt;
  return CalendarTime{local.wYear, local.wMonth,  local.wDay,
                      local.wHour, local.wMinute, local.wSecond};
}

void SleepMilliseconds(std::uint32_t milliseconds) {
  Sleep(milliseconds);
}

}  // namespace kestrelon::platform

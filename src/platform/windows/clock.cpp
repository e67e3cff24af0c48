#include "platform/clock.h"

#include "platform/windows/windows_headers.h"

namespace kestrelon::platform {

std::uint64_t TickMilliseconds() {
  return GetTickCount64();
}

std::int64_t SystemTime() {
  FILETIME time{};
  GetSystemTimeAsFileTime(&time);
  return static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
}

std::optional<CalendarTime> LocalTime() {
  FILETIME now{};
  SYSTEMTIME utc{};
  SYSTEMTIME local{};
  GetSystemTimeAsFileTime(&now);
  if (!FileTimeToSystemTime(&now, &utc)) return std::nullopt;
  if (!SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local)) return std::nullopt;
  return CalendarTime{local.wYear, local.wMonth,  local.wDay,
                      local.wHour, local.wMinute, local.wSecond};
}

void SleepMilliseconds(std::uint32_t milliseconds) {
  Sleep(milliseconds);
}

}  // namespace kestrelon::platform

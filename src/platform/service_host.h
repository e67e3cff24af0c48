// The process as a service: how the service manager starts it, steers it and hears of it.
#pragma once

#include <cstdint>
#include <string>

#include "platform/codes.h"

namespace kestrelon::platform {

enum ServiceControl : std::uint32_t {
  kControlStop = 1,
  kControlInterrogate = 4,
  kControlShutdown = 5,
  kControlSessionChange = 14,
};

enum ServiceState : std::uint32_t {
  kServiceStopped = 1,
  kServiceStartPending = 2,
  kServiceStopPending = 3,
  kServiceRunning = 4,
};

enum ServiceAccepts : std::uint32_t {
  kAcceptStop = 1,
  kAcceptShutdown = 4,
  kAcceptSessionChange = 128,
};

// What a service says of itself; the type is always that of an own process.
struct ServiceReport {
  std::uint32_t state = 0;
  std::uint32_t accepts = 0;  // ServiceAccepts
  std::uint32_t exit_code = 0;
  std::uint32_t specific_exit_code = 0;  // counts with the exit code kServiceSpecificError
  std::uint32_t check_point = 0;
  std::uint32_t wait_hint_ms = 0;
};

// Hands the calling thread to the service manager, which runs `entry` on a thread of its own;
// returns once the service has reported that it stopped. kNotStartedByManager at once, or after
// some seconds, when the process was started by hand.
[[nodiscard]] Code RunAsService(const std::wstring& name, void (*entry)());

// The service's line to the manager, for the entry routine. 0 on failure.
using ServiceStatusHandle = std::uintptr_t;

// Has `handler(control)` called on the dispatcher's thread for each control; its value is the
// answer, 0 for done.
[[nodiscard]] ServiceStatusHandle RegisterServiceControls(
    const std::wstring& name, std::uint32_t (*handler)(std::uint32_t control));

// Any thread. After kServiceStopped the process may be ended at any moment.
Code ReportService(ServiceStatusHandle status, const ServiceReport& report);

}  // namespace kestrelon::platform

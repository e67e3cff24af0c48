#include "core/service_entry.h"

#include "core/core_loop.h"
#include "core/core_start.h"
#include "core/own_service.h"
#include "platform/service_host.h"

namespace kestrelon {
namespace {

using platform::ServiceReport;

// The engine alone may take a minute to come up at boot, the first filters some time more.
constexpr std::uint32_t kStartHintMs = 90000;
constexpr std::uint32_t kStopHintMs = 10000;
// What the failure actions are to see when the core could not start; any code but 0 would do.
constexpr std::uint32_t kStartFailed = 1;

// Reports come from the entry routine and from the control handler.
Guard ReportGuard("ReportGuard", GuardRank::kLeaf);
platform::ServiceStatusHandle manager_line GUARDED_BY(ReportGuard) = 0;
std::uint32_t last_state GUARDED_BY(ReportGuard) = 0;
std::uint32_t check_point GUARDED_BY(ReportGuard) = 0;

void OpenReports(platform::ServiceStatusHandle line) {
  GuardLock lock(ReportGuard);
  manager_line = line;
  last_state = 0;
  check_point = 0;
}

// A service on its way out stays there: a control may come in between what the entry routine last
// found and what it reports of it.
bool MayFollow(std::uint32_t state, std::uint32_t last) {
  if (last == platform::kServiceStopped) return false;
  return last != platform::kServiceStopPending || state != platform::kServiceRunning;
}

// A pending state is reported under the next check point, so that the manager sees it move on.
void Report(ServiceReport report) {
  GuardLock lock(ReportGuard);
  if (!MayFollow(report.state, last_state)) return;
  last_state = report.state;
  const bool pending = report.state == platform::kServiceStartPending ||
                       report.state == platform::kServiceStopPending;
  if (pending) report.check_point = ++check_point;
  (void)platform::ReportService(manager_line, report);
}

void RequestStop() {
  Report({.state = platform::kServiceStopPending, .wait_hint_ms = kStopHintMs});
  Core.StopEvent.Set();
}

}  // namespace

void ServiceEntry() {
  const platform::ServiceStatusHandle line =
      platform::RegisterServiceControls(kServiceName, &HandleServiceControl);
  if (line == 0) return;
  OpenReports(line);
  Report({.state = platform::kServiceStartPending, .wait_hint_ms = kStartHintMs});
  if (!CoreStart()) {
    Report({.state = platform::kServiceStopped,
            .exit_code = platform::kServiceSpecificError,
            .specific_exit_code = kStartFailed});
    return;
  }
  Report({.state = platform::kServiceRunning,
          .accepts =
              platform::kAcceptStop | platform::kAcceptShutdown | platform::kAcceptSessionChange});
  CoreLoop();
  CoreStop();
  Report({.state = platform::kServiceStopped});
}

std::uint32_t HandleServiceControl(std::uint32_t control) {
  switch (control) {
    case platform::kControlStop:
    case platform::kControlShutdown:
      RequestStop();
      return platform::kSuccess;
    case platform::kControlInterrogate:  // the manager knows the last report
      return platform::kSuccess;
    case platform::kControlSessionChange:
      Core.WakeEvent.Set();
      return platform::kSuccess;
    default:
      return platform::kCallNotImplemented;
  }
}

}  // namespace kestrelon

#include "simulation/machine/service_host.h"

#include <algorithm>
#include <thread>

#include "simulation/machine/machine.h"

namespace simulation {

using kestrelon::platform::kAcceptSessionChange;
using kestrelon::platform::kAcceptShutdown;
using kestrelon::platform::kAcceptStop;
using kestrelon::platform::kControlInterrogate;
using kestrelon::platform::kControlSessionChange;
using kestrelon::platform::kControlShutdown;
using kestrelon::platform::kControlStop;
using kestrelon::platform::kInvalidHandle;
using kestrelon::platform::kNotStartedByManager;
using kestrelon::platform::kServiceRunning;
using kestrelon::platform::kServiceStopped;
using kestrelon::platform::kSuccess;

namespace {

constexpr kestrelon::platform::Code kControlNotAccepted = 1052;
constexpr kestrelon::platform::Code kCannotAcceptControl = 1061;
constexpr kestrelon::platform::Code kServiceNotActive = 1062;
constexpr ServiceHost::StatusHandle kStatusHandle = 0x6000;

// The bit of a report that lets a control through; 0 for those that no report asks for.
std::uint32_t NeededToAccept(std::uint32_t control) {
  switch (control) {
    case kControlStop:
      return kAcceptStop;
    case kControlShutdown:
      return kAcceptShutdown;
    case kControlSessionChange:
      return kAcceptSessionChange;
    default:
      return 0;
  }
}

}  // namespace

std::vector<ServiceHost::Report> ServiceHost::reports() const {
  const std::lock_guard lock(mutex_);
  return reports_;
}

ServiceHost::Report ServiceHost::WaitForState(std::uint32_t state) const {
  std::unique_lock lock(mutex_);
  const auto found = [&] {
    return std::find_if(reports_.begin(), reports_.end(),
                        [state](const Report& report) { return report.state == state; });
  };
  reported_.wait(lock, [&] { return found() != reports_.end(); });
  return *found();
}

ServiceHost::Code ServiceHost::Refusal(std::uint32_t control) const {
  if (!hosted_ || handler_ == nullptr || reports_.empty()) return kServiceNotActive;
  const Report& last = reports_.back();
  if (last.state == kServiceStopped) return kServiceNotActive;
  if (control == kControlInterrogate) return kSuccess;
  if (last.state != kServiceRunning) return kCannotAcceptControl;
  return (last.accepts & NeededToAccept(control)) != 0 ? kSuccess : kControlNotAccepted;
}

ServiceHost::Code ServiceHost::SendControl(std::uint32_t control) {
  Handler handler = nullptr;
  {
    const std::lock_guard lock(mutex_);
    if (const Code refusal = Refusal(control)) return refusal;
    handler = handler_;
  }
  Code answer = kSuccess;
  std::thread([&] { answer = handler(control); }).join();
  return answer;
}

ServiceHost::Code ServiceHost::Run(void (*entry)()) {
  if (!started_by_manager) return kNotStartedByManager;
  {
    const std::lock_guard lock(mutex_);
    reports_.clear();
    hosted_ = true;
  }
  // The platform would only wait for the last report; a routine that goes on after it is a thread
  // left behind, which a test should notice.
  std::thread(entry).join();
  const std::lock_guard lock(mutex_);
  hosted_ = false;
  handler_ = nullptr;
  return kSuccess;
}

ServiceHost::StatusHandle ServiceHost::RegisterControls(Handler handler) {
  const std::lock_guard lock(mutex_);
  if (!hosted_) return 0;
  handler_ = handler;
  status_ = kStatusHandle;
  return status_;
}

ServiceHost::Code ServiceHost::TakeReport(StatusHandle status, const Report& report) {
  const std::lock_guard lock(mutex_);
  // The line stays open until the process ends, whether or not the manager still expects anything.
  if (status == 0 || status != status_) return kInvalidHandle;
  reports_.push_back(report);
  reported_.notify_all();
  return kSuccess;
}

}  // namespace simulation

namespace kestrelon::platform {

using simulation::TheMachine;

Code RunAsService(const std::wstring& /*name*/, void (*entry)()) {
  if (const Code fault = TheMachine().faults.Next("RunAsService")) return fault;
  return TheMachine().service_host.Run(entry);
}

ServiceStatusHandle RegisterServiceControls(const std::wstring& /*name*/,
                                            std::uint32_t (*handler)(std::uint32_t control)) {
  if (TheMachine().faults.Next("RegisterServiceControls") != kSuccess) return 0;
  return TheMachine().service_host.RegisterControls(handler);
}

Code ReportService(ServiceStatusHandle status, const ServiceReport& report) {
  if (const Code fault = TheMachine().faults.Next("ReportService")) return fault;
  return TheMachine().service_host.TakeReport(status, report);
}

}  // namespace kestrelon::platform

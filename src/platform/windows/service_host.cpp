#include "platform/service_host.h"

#include "platform/windows/windows_headers.h"

#include <atomic>

namespace kestrelon::platform {
namespace {

// The platform hands its routines nothing of the product's to carry these in. Atomic because it
// calls them on threads of its own.
std::atomic<void (*)()> service_entry = nullptr;
std::atomic<std::uint32_t (*)(std::uint32_t)> control_handler = nullptr;

void WINAPI ServiceMain(DWORD /*count*/, LPWSTR* /*arguments*/) {
  if (void (*const entry)() = service_entry.load()) entry();
}

DWORD WINAPI ControlReceived(DWORD control, DWORD /*event_type*/, LPVOID /*event_data*/,
                             LPVOID /*context*/) {
  std::uint32_t (*const handler)(std::uint32_t) = control_handler.load();
  return handler != nullptr ? handler(control) : ERROR_CALL_NOT_IMPLEMENTED;
}

}  // namespace

Code RunAsService(const std::wstring& name, void (*entry)()) {
  service_entry = entry;
  const SERVICE_TABLE_ENTRYW table[] = {{const_cast<LPWSTR>(name.c_str()), &ServiceMain},
                                        {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(table) ? kSuccess : GetLastError();
}

ServiceStatusHandle RegisterServiceControls(const std::wstring& name,
                                            std::uint32_t (*handler)(std::uint32_t control)) {
  control_handler = handler;
  const SERVICE_STATUS_HANDLE status =
      RegisterServiceCtrlHandlerExW(name.c_str(), &ControlReceived, nullptr);
  return reinterpret_cast<ServiceStatusHandle>(status);
}

Code ReportService(ServiceStatusHandle status, const ServiceReport& report) {
  SERVICE_STATUS native{};
  native.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  native.dwCurrentState = report.state;
  native.dwControlsAccepted = report.accepts;
  native.dwWin32ExitCode = report.exit_code;
  native.dwServiceSpecificExitCode = report.specific_exit_code;
  native.dwCheckPoint = report.check_point;
  native.dwWaitHint = report.wait_hint_ms;
  const auto handle = reinterpret_cast<SERVICE_STATUS_HANDLE>(status);
  return SetServiceStatus(handle, &native) ? kSuccess : GetLastError();
}

}  // namespace kestrelon::platform

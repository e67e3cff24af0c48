// BFE.exe: the base filtering engine's service on the bench.
//
//   BFE.exe [--policy FILE]             as the service BFE
//   BFE.exe --console [--policy FILE]   in the foreground
//
// The policy file lies beside the executable unless named. The process's end, however it comes, is
// the loss of the engine for everybody who is connected.
#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <string>

#include "simulation/bench/bfe_server.h"

namespace simulation {
namespace {

using kestrelon::platform::kSuccess;

wchar_t service_name[] = L"BFE";

// Set once in wmain, before any other thread runs.
std::wstring policy_path;

// Of the service's thread and the control handler.
SERVICE_STATUS_HANDLE status_handle = nullptr;
HANDLE stop_event = nullptr;

std::wstring PathBesideExecutable(const wchar_t* name) {
  wchar_t path[MAX_PATH] = L"";
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring text = path;
  return text.substr(0, text.rfind(L'\\') + 1) + name;
}

// 100 ns steps since 1601-01-01 UTC.
std::int64_t SystemTime() {
  FILETIME now{};
  GetSystemTimeAsFileTime(&now);
  return static_cast<std::int64_t>(std::uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime);
}

// The engine and what serves it. Made once, and never destroyed: connections use it until the
// process is gone.
struct Service {
  Service() { engine.SetClock(SystemTime); }

  Engine engine;
  PolicyFile policy{engine, policy_path};
  StreamQueues streams;
  BfeServer server{Bfe{engine, policy, streams}};
};

// The service with its stored policy in force and its pipe open; null, and the reason on stderr,
// if that fails.
Service* StartEngine() {
  auto* const service = new Service;
  std::wstring error;
  if (!service->policy.Load(error)) {
    std::fwprintf(stderr, L"BFE: %ls\n", error.c_str());
    return nullptr;
  }
  if (const Code code = service->server.Listen()) {
    std::fwprintf(stderr, L"BFE: cannot make the pipe: error %u\n", code);
    return nullptr;
  }
  return service;
}

void ReportStatus(DWORD state, DWORD exit_code = NO_ERROR) {
  SERVICE_STATUS status{};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
  status.dwWin32ExitCode = exit_code;
  SetServiceStatus(status_handle, &status);
}

DWORD WINAPI HandleControl(DWORD control, DWORD /*event*/, void* /*data*/, void* /*context*/) {
  if (control == SERVICE_CONTROL_STOP) {
    ReportStatus(SERVICE_STOP_PENDING);
    SetEvent(stop_event);
  }
  const bool known = control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_INTERROGATE;
  return known ? NO_ERROR : ERROR_CALL_NOT_IMPLEMENTED;
}

DWORD WINAPI ServeInBackground(void* service) {
  static_cast<Service*>(service)->server.Serve();
  SetEvent(stop_event);
  return 0;
}

void WINAPI ServiceMain(DWORD /*count*/, wchar_t** /*arguments*/) {
  stop_event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  status_handle = RegisterServiceCtrlHandlerExW(service_name, HandleControl, nullptr);
  if (status_handle == nullptr) return;
  ReportStatus(SERVICE_START_PENDING);
  Service* const service = StartEngine();
  const HANDLE thread = service == nullptr
                            ? nullptr
                            : CreateThread(nullptr, 0, ServeInBackground, service, 0, nullptr);
  if (thread == nullptr) {
    ReportStatus(SERVICE_STOPPED, ERROR_SERVICE_SPECIFIC_ERROR);
    return;
  }
  ReportStatus(SERVICE_RUNNING);
  WaitForSingleObject(stop_event, INFINITE);
  const Code code = service->policy.Save();
  ReportStatus(SERVICE_STOPPED, code);
}

int RunInForeground() {
  Service* const service = StartEngine();
  if (service == nullptr) return 1;
  std::fwprintf(stderr, L"BFE: serving, policy in %ls\n", policy_path.c_str());
  const Code code = service->server.Serve();
  std::fwprintf(stderr, L"BFE: cannot go on serving: error %u\n", code);
  return 1;
}

int RunAsService() {
  const SERVICE_TABLE_ENTRYW table[] = {{service_name, ServiceMain}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}

int Usage() {
  std::fputws(L"usage: BFE.exe [--console] [--policy FILE]\n", stderr);
  return 2;
}

}  // namespace
}  // namespace simulation

int wmain(int count, wchar_t** arguments) {
  simulation::policy_path = simulation::PathBesideExecutable(L"bfe_policy.bin");
  bool console = false;
  for (int i = 1; i < count; ++i) {
    if (std::wcscmp(arguments[i], L"--console") == 0) {
      console = true;
    } else if (std::wcscmp(arguments[i], L"--policy") == 0 && i + 1 < count) {
      simulation::policy_path = arguments[++i];
    } else {
      return simulation::Usage();
    }
  }
  // Straight out of the process: threads still serve connections, and destroy nothing under them.
  const int result = console ? simulation::RunInForeground() : simulation::RunAsService();
  ExitProcess(static_cast<UINT>(result));
}

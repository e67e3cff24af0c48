// The tests' installer: puts C:\next\KestrelonSvc.exe in the place of the service's executable, as
// silently as installers run for an update.
//
// Each run adds its command line to C:\next\runs, and tells what it did in the file that /LOG=
// names. The service is stopped for it and left to others to start. With a file C:\next\exit it
// only ends, with the exit code that stands there.
#include <windows.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

namespace {

constexpr char kRunsFile[] = "C:\\next\\runs";
constexpr char kExitFile[] = "C:\\next\\exit";
constexpr char kNextBuild[] = "C:\\next\\KestrelonSvc.exe";
constexpr char kServiceFile[] = "C:\\Program Files\\Kestrelon\\KestrelonSvc.exe";
constexpr int kTries = 300;
constexpr std::chrono::milliseconds kTrySpacing{50};

enum ExitCode { kInstalled = 0, kNotStopped = 1, kNotReplaced = 2 };

template <typename Condition>
bool BecomesTrue(Condition condition) {
  for (int i = 0; i < kTries; ++i, std::this_thread::sleep_for(kTrySpacing)) {
    if (condition()) return true;
  }
  return false;
}

bool StopService() {
  const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  const SC_HANDLE service =
      OpenServiceW(manager, L"KestrelonSvc", SERVICE_STOP | SERVICE_QUERY_STATUS);
  SERVICE_STATUS status{};
  ControlService(service, SERVICE_CONTROL_STOP, &status);
  const bool stopped = BecomesTrue([&] {
    return QueryServiceStatus(service, &status) && status.dwCurrentState == SERVICE_STOPPED;
  });
  CloseServiceHandle(service);
  CloseServiceHandle(manager);
  return stopped;
}

int Install(std::ostream& log) {
  int code = 0;
  if (std::ifstream(kExitFile) >> code) return code;
  if (!StopService()) return kNotStopped;
  log << "stopped the service\n";
  // A stopped service's process takes a moment to end.
  if (!BecomesTrue([] { return CopyFileA(kNextBuild, kServiceFile, FALSE) != FALSE; })) {
    return kNotReplaced;
  }
  log << "replaced its executable\n";
  return kInstalled;
}

}  // namespace

int main(int argc, char** argv) {
  std::ofstream(kRunsFile, std::ios::binary | std::ios::app) << GetCommandLineA() << '\n';
  std::string log_file;
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "/LOG=", 5) == 0) log_file = argv[i] + 5;
  }
  std::ofstream log(log_file, std::ios::binary);
  const int code = Install(log);
  log << "ends with " << code << '\n';
  return code;
}

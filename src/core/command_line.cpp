#include "core/command_line.h"

#include "base/format.h"
#include "core/core_loop.h"
#include "core/core_start.h"
#include "core/core_state.h"
#include "core/service_entry.h"
#include "core/service_log.h"
#include "core/service_setup.h"
#include "core/version.h"
#include "platform/console.h"
#include "platform/security.h"
#include "platform/service_host.h"

namespace kestrelon {
namespace {

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitNotElevated = 5;

void PrintUsage() {
  platform::WriteStandardOutput(
      Format(L"Kestrelon service %s\n\n"
             L"  --install          register and start the service\n"
             L"  --uninstall        stop and delete the service, remove all Kestrelon filters\n"
             L"  --remove-filters   EMERGENCY: turn protection off and remove all filters\n"
             L"  --console          run in the foreground (debugging)\n",
             kVersion));
}

int Help() {
  PrintUsage();
  return kExitSuccess;
}

int Unknown() {
  PrintUsage();
  return kExitFailure;
}

// What the service manager starts, which alone gives no argument.
int Service() {
  const platform::Code code = platform::RunAsService(kServiceName, &ServiceEntry);
  if (code == platform::kSuccess) return kExitSuccess;
  if (code == platform::kNotStartedByManager) PrintUsage();
  return kExitFailure;
}

// Runs the core in the foreground until Ctrl+C.
int Console() {
  PrintLogLines(true);
  (void)platform::SetConsoleStopHandler([] { Core.StopEvent.Set(); });
  if (!CoreStart()) return kExitFailure;
  platform::WriteStandardOutput(L"Running. Press Ctrl+C to stop (filters stay active).\n");
  CoreLoop();
  CoreStop();
  return kExitSuccess;
}

struct Command {
  const wchar_t* argument;
  bool needs_elevation;
  int (*run)();
};

constexpr Command kCommands[] = {
    {L"--help", false, &Help},
    {L"-h", false, &Help},
    {L"/?", false, &Help},
    {L"--install", true, &InstallService},
    {L"--uninstall", true, &UninstallService},
    {L"--remove-filters", true, &RemoveFiltersCommand},
    {L"--console", true, &Console},
};
// What no row names needs elevation too: a stranger learns nothing by guessing.
constexpr Command kUnknown = {L"", true, &Unknown};

const Command& FindCommand(const std::wstring& argument) {
  for (const Command& command : kCommands) {
    if (argument == command.argument) return command;
  }
  return kUnknown;
}

bool IsElevated() {
  bool elevated = false;
  return platform::IsProcessElevated(elevated) == platform::kSuccess && elevated;
}

}  // namespace

int RunCommandLine(const std::vector<std::wstring>& arguments) {
  if (arguments.empty()) return Service();
  const Command& command = FindCommand(arguments.front());
  if (command.needs_elevation && !IsElevated()) {
    platform::WriteStandardError(L"This command must be run as administrator.\n");
    return kExitNotElevated;
  }
  return command.run();
}

}  // namespace kestrelon

#include "core/command_line.h"

#include "base/format.h"
#include "core/core_loop.h"
#include "core/core_start.h"
#include "core/core_state.h"
#include "core/own_service.h"
#include "core/service_entry.h"
#include "core/service_log.h"
#include "core/service_setup.h"
#include "core/version.h"
#include "platform/console.h"
#include "platform/security.h"
#include "platform/service_host.h"
#include "updates/apply_update.h"

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

using Arguments = std::vector<std::wstring>;

int ApplyUpdate(const Arguments& arguments) {
  return ApplyUpdateHelper(arguments[1], arguments[2]);
}

// A command that heeds no further arguments, as the table calls it.
template <int (*kRun)()>
int Alone(const Arguments& /*arguments*/) {
  return kRun();
}

struct Command {
  const wchar_t* argument;
  bool needs_elevation;
  std::size_t further;  // arguments that it can't do without
  int (*run)(const Arguments& arguments);
};

constexpr Command kCommands[] = {
    {L"--help", false, 0, Alone<Help>},
    {L"-h", false, 0, Alone<Help>},
    {L"/?", false, 0, Alone<Help>},
    {L"--install", true, 0, Alone<InstallService>},
    {L"--uninstall", true, 0, Alone<UninstallService>},
    {L"--remove-filters", true, 0, Alone<RemoveFiltersCommand>},
    {L"--console", true, 0, Alone<Console>},
    // By the service alone, when it installs an update.
    {L"--apply-update", true, 2, ApplyUpdate},
};
// What no row names needs elevation too: a stranger learns nothing by guessing.
constexpr Command kUnknown = {L"", true, 0, Alone<Unknown>};

const Command& FindCommand(const Arguments& arguments) {
  for (const Command& command : kCommands) {
    if (arguments[0] == command.argument && arguments.size() > command.further) return command;
  }
  return kUnknown;
}

bool IsElevated() {
  bool elevated = false;
  return platform::IsProcessElevated(elevated) == platform::kSuccess && elevated;
}

}  // namespace

int RunCommandLine(const Arguments& arguments) {
  if (arguments.empty()) return Service();
  const Command& command = FindCommand(arguments);
  if (command.needs_elevation && !IsElevated()) {
    platform::WriteStandardError(L"This command must be run as administrator.\n");
    return kExitNotElevated;
  }
  return command.run(arguments);
}

}  // namespace kestrelon

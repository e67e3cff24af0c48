#include "core/command_line.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

constexpr const wchar_t* kUsage =
    L"Kestrelon service 1.2.2\n\n"
    L"  --install          register and start the service\n"
    L"  --uninstall        stop and delete the service, remove all Kestrelon filters\n"
    L"  --remove-filters   EMERGENCY: turn protection off and remove all filters\n"
    L"  --console          run in the foreground (debugging)\n";
constexpr const wchar_t* kNeedsAdministrator = L"This command must be run as administrator.\n";

TEST(CommandLine, TheFirstArgumentSelectsExactly) {
  struct Case {
    std::vector<std::wstring> arguments;
    bool elevated;
    int exit_code;
    const wchar_t* output;
    const wchar_t* error_output;
  };
  const Case cases[] = {
      {{L"--help"}, false, 0, kUsage, L""},
      {{L"-h", L"--console"}, false, 0, kUsage, L""},
      {{L"/?"}, false, 0, kUsage, L""},
      {{L"--HELP"}, true, 1, kUsage, L""},
      {{L"--HELP"}, false, 5, L"", kNeedsAdministrator},
      {{L"--console"}, false, 5, L"", kNeedsAdministrator},
      {{L"--install"}, false, 5, L"", kNeedsAdministrator},
      {{L"--uninstall"}, false, 5, L"", kNeedsAdministrator},
      {{L"--remove-filters"}, false, 5, L"", kNeedsAdministrator},
      {{L"--apply-update", L"C:\\a.exe", L"en"}, false, 5, L"", kNeedsAdministrator},
      {{L"--apply-update", L"C:\\a.exe", L"en", L"more"}, true, 9001, L"", L""},
      {{L"--apply-update", L"C:\\a.exe"}, true, 1, kUsage, L""},
      {{L"install"}, true, 1, kUsage, L""},
      {{L"", L"--help"}, true, 1, kUsage, L""},
      {{}, false, 1, kUsage, L""},  // started by hand
  };
  simulation::Machine& machine = simulation::TheMachine();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.arguments.empty() ? "no argument" : Utf8FromWide(c.arguments[0]));
    machine.token.elevated = c.elevated;
    machine.console.output.Clear();
    machine.console.error_output.Clear();
    EXPECT_EQ(RunCommandLine(c.arguments), c.exit_code);
    EXPECT_EQ(machine.console.output.text(), c.output);
    EXPECT_EQ(machine.console.error_output.text(), c.error_output);
  }
}

TEST(CommandLine, ElevationThatCannotBeReadCountsAsNone) {
  simulation::TheMachine().faults.FailAlways("IsProcessElevated", platform::kAccessDenied);
  EXPECT_EQ(RunCommandLine({L"--console"}), 5);
}

}  // namespace
}  // namespace kestrelon

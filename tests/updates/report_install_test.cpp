// How an installation went, and the window that it closed.
#include "updates/report_install.h"

#include <optional>

#include "core/error_text.h"
#include "tests/updates/update_world.h"
#include "updates/reopen_window.h"
#include "updates/update_settings.h"
#include "updates/update_state.h"

namespace kestrelon::test {
namespace {

using ReportInstall = UpdateWorld;

TEST_F(ReportInstall, TellsWhetherThePendingBuildRuns) {
  const struct {
    std::uint32_t build;
    std::optional<std::uint32_t> helper_exit;
    bool at_start;
    std::wstring detail;
  } cases[] = {{48, {}, true, L""},
               {48, 9001, true, L""},
               {48, 0, false, L""},
               {49, {}, true, L"the installation did not finish"},
               {49, 0, true, L"the installer ended with code 0"},
               {47, 0xC0000005, false, L"the installer ended with code 3221225477"}};
  for (const auto& [build, helper_exit, at_start, detail] : cases) {
    SetUpdateState(kUpdateInstalling, L"");
    ASSERT_EQ(StorePendingInstall({build, L"1.2.3"}), platform::kSuccess);
    if (helper_exit) StoreHelperExit(*helper_exit);
    ReportInstallOutcome(at_start);
    const bool ok = detail.empty();
    EXPECT_TRUE(Logged(L"Update to 1.2.3 " + (ok ? L"installed" : L"FAILED: " + detail),
                       ok ? L"update installed: Kestrelon 1.2.3" : L"update FAILED: " + detail));
    EXPECT_EQ(State(),
              ok ? L"installing: " : L"error: the update to 1.2.3 was not installed: " + detail);
    EXPECT_FALSE(StoredPendingInstall() || StoredHelperExit());
    const LastInstall last = Copy().last_install;
    EXPECT_EQ(last.version + last.result + last.detail,
              (ok ? L"1.2.3ok" : L"1.2.3failed") + detail);
    EXPECT_EQ(last.time, machine.clock.SystemTime());
  }
  ASSERT_EQ(StorePendingInstall({48, L"1.2.3"}), platform::kSuccess);
  ReportInstallOutcome(false);
  EXPECT_TRUE(StoredPendingInstall()) << "the helper is still at work";
}

TEST_F(ReportInstall, OpensTheWindowAgainWithItsUsersFullRightsIfTheyAreToBeHad) {
  const std::wstring window = L"C:\\Program Files\\Kestrelon\\Kestrelon.exe";
  files.Write(window, "window");
  const std::pair<const char*, std::uint32_t> cases[] = {
      {"", simulation::kElevationFull},
      {"QueryTokenElevation", platform::kElevationLimited},
      {"QueryLinkedToken", platform::kElevationLimited}};
  for (const auto& [fault, expected] : cases) {
    ReopenWindow(2);  // nobody is signed in
    machine.sessions.SignIn(2);
    machine.sessions.SetElevation(2, platform::kElevationLimited);
    machine.faults.FailOnce(fault, 5);
    ReopenWindow(2);
    const auto process = machine.processes.Find(machine.processes.Running(window, 2).at(0)).value();
    EXPECT_EQ(process.elevation, expected) << fault;
    EXPECT_EQ(process.desktop, L"winsta0\\default");
    EXPECT_EQ(TakeLog(), L"Reopened the Kestrelon window in session 2 after the update\n");
    machine.sessions.SignOut(2);
  }
  machine.sessions.SignIn(2);
  files.Remove(window);
  ASSERT_EQ(StorePendingInstall({49, L"1.2.3", 0, 2}), platform::kSuccess);
  StoreHelperExit(1);
  ReportInstallOutcome(false);
  EXPECT_TRUE(Logged(L"Cannot reopen the Kestrelon window after the update: " + ErrorText(2),
                     L"update FAILED: the installer ended with code 1"));
}

}  // namespace
}  // namespace kestrelon::test

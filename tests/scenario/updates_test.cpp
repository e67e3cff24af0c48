// Updates of the product itself, from a client's word to the verdict and to the window afterwards.
#include "core/core_loop.h"
#include "core/core_state.h"
#include "tests/scenario/client.h"
#include "tests/scenario/world.h"
#include "updates/update_settings.h"
#include "updates/update_state.h"

namespace kestrelon::test {
namespace {

class Updates : public Scenario {
 protected:
  std::string UpdateValue(const char* key) {
    return Client().Command("status").Get("update").Get(key).Dump(false);
  }

  void ExpectWayOut(bool open) {
    const Attempt update = Out(kService, L"192.0.2.1", 443);
    EXPECT_EQ(world.Passes(update), open);
    EXPECT_EQ(world.Passes(Out(kService, L"2001:db8::1", 443)), open);
    for (const Attempt& other : {Out(kService, L"192.0.2.1", 80), Out(kOther, L"192.0.2.1", 443),
                                 Udp(update), In(kService, L"192.0.2.1", 443)}) {
      EXPECT_FALSE(world.Passes(other)) << "beside the way out";
    }
  }

  Config config = ConfigOf({Allowed(kTool)});
};

TEST_F(Updates, TheWayOutIsOpenForATransferAloneAndAStopEndsThat) {
  world.machine().http.Serve(L"https://localhost:28444/update/latest.json", {.silent = true});
  ASSERT_TRUE(world.StartWith(config));
  ExpectWayOut(false);
  world.RunLoop();
  EXPECT_TRUE(Client().Command("check_update").Get("ok").boolean());
  world.machine().http.WaitForBlocked();
  ExpectWayOut(true);
  EXPECT_EQ(UpdateValue("state"), R"("checking")");
  EXPECT_EQ(Client().Command("install_update").Get("error").text(),
            "an update check or download is already running");
  world.Stop();
  EXPECT_FALSE(UpdateSignals.busy);
  EXPECT_TRUE(world.Logged(L"Update check failed (stable): the service is stopping"));
}

TEST_F(Updates, WithDailyChecksTheWayOutStaysOpenWhileProtectionIsOn) {
  config.updates_auto_check = true;
  ASSERT_TRUE(world.StartWith(config));
  ExpectWayOut(true);
  config.enabled = false;
  EXPECT_TRUE(world.Set(config).Get("ok").boolean());
  EXPECT_TRUE(world.Passes(Out(kOther, L"192.0.2.1", 80))) << "nothing is filtered";
  config.enabled = true;
  config.updates_auto_check = false;
  EXPECT_TRUE(world.Set(config).Get("ok").boolean());
  ExpectWayOut(false);
}

// The filters before it stay when the rule can't be installed, and the loop tries again.
TEST_F(Updates, ARuleThatWasNotInstalledDoesNotCountAsInForce) {
  ASSERT_TRUE(world.StartWith(config));
  UpdateSignals.UpdateRuleWanted = true;
  world.machine().faults.FailOnce("CommitTransaction", platform::kTransactionTimeout);
  LoopPass();
  EXPECT_TRUE(world.Logged(L"Re-apply (update rule) failed: "));
  EXPECT_FALSE(UpdateSignals.UpdateRuleInstalled);
  ExpectWayOut(false);
  LoopPass();
  EXPECT_TRUE(UpdateSignals.UpdateRuleInstalled);
  ExpectWayOut(true);
  UpdateSignals.UpdateRuleWanted = false;
  LoopPass();
  ExpectWayOut(false);
}

// The window was closed by the installer; its user gets it back with the rights that it had.
TEST_F(Updates, TheWindowComesBackWithTheNewVersionOrTheOldOne) {
  const std::wstring window = L"C:\\Program Files\\Kestrelon\\Kestrelon.exe";
  world.Program(window, "the window");
  for (const std::uint32_t build : {48U, 50U}) {
    world.machine().sessions.SignIn(1);
    world.machine().sessions.SetElevation(1, platform::kElevationLimited);
    ASSERT_EQ(StorePendingInstall({build, L"1.3.0", 1, 1}), platform::kSuccess);
    ASSERT_TRUE(build == 48 ? world.StartWith(config) : world.Start());
    UpdateSignals.stop = false;  // the process begins anew
    EXPECT_TRUE(world.machine().processes.Running(window, 1).empty()) << "before the core is up";
    LoopPass();
    LoopPass();
    const std::vector<std::uint32_t> running = world.machine().processes.Running(window, 1);
    ASSERT_EQ(running.size(), 1U);
    const auto process = world.machine().processes.Find(running[0]);
    EXPECT_EQ(process->command_line, L"\"" + window + L"\" --updated");
    EXPECT_NE(process->elevation, platform::kElevationLimited);
    EXPECT_EQ(UpdateValue("state"), build == 48 ? R"("idle")" : R"("error")");
    const Json last = Client().Command("status").Get("update").Get("last_install");
    EXPECT_EQ(last.Get("result").text(), build == 48 ? "ok" : "failed");
    EXPECT_EQ(last.Get("detail").text(), build == 48 ? "" : "the installation did not finish");
    world.machine().sessions.SignOut(1);
    world.Stop();
  }
}

}  // namespace
}  // namespace kestrelon::test

// A configuration sent by a client becomes live as a whole, or changes nothing.
#include "core/config_change.h"
#include "base/text.h"
#include "config/config_file.h"
#include "core/core_loop.h"
#include "filtering/filter_engine.h"
#include "platform/codes.h"
#include "platform/wait.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

class ConfigChange : public Scenario {
 protected:
  void SetUp() override {
    ASSERT_TRUE(world.StartWith(ConfigOf({Allowed(kTool)})));
    before = world.ConfigOnDisk();  // with what was learnt
  }

  void ExpectUnchanged() {
    EXPECT_EQ(world.ConfigOnDisk(), before);
    EXPECT_TRUE(world.Reaches(kTool));
    EXPECT_FALSE(world.Reaches(kOther));
    GuardLock lock(ConfigGuard);
    EXPECT_EQ(Core.CurrentConfig, before);
  }

  std::wstring ErrorOf(const Json& reply) {
    EXPECT_FALSE(reply.Get("ok").boolean());
    return reply.Get("error").StringOr(L"");
  }

  std::size_t Backups() {
    return world.machine().files.Names(L"C:\\ProgramData\\Kestrelon\\backups").size();
  }

  Config before;
  const Config after = ConfigOf({Allowed(kOther)});
};

TEST_F(ConfigChange, AnAcceptedOneIsInForceSavedBackedUpLoggedAndWakesTheLoop) {
  Core.WakeEvent.Clear();
  EXPECT_TRUE(world.Set(after)["ok"].boolean());
  // The engine does not tell a session of its own changes.
  EXPECT_EQ(platform::WaitForAny({&Core.WakeEvent}, 0), 0) << "the loop slept by the other";
  EXPECT_FALSE(world.Reaches(kTool));
  EXPECT_TRUE(world.Reaches(kOther));
  const Config saved = world.ConfigOnDisk();
  EXPECT_EQ(saved.apps[0].sha256, std::vector<std::wstring>{HashText("another program")});
  EXPECT_EQ(world.ConfigOnDisk(std::wstring(kConfigFile) + L".lastgood"), saved);
  ASSERT_EQ(Backups(), 1U);
  EXPECT_EQ(world.ConfigOnDisk(L"C:\\ProgramData\\Kestrelon\\backups\\config-20261121-120000.json"),
            before);
  EXPECT_TRUE(world.Logged(L"Configuration updated: 1 apps, 0 rules, "));
  EXPECT_FALSE(world.machine().files.Exists(std::wstring(kConfigFile) + L".new"));
  world.machine().clock.Advance(1000);
  EXPECT_TRUE(world.Set(after)["ok"].boolean());
  EXPECT_EQ(Backups(), 2U) << "the same content again";
}

TEST_F(ConfigChange, AFullDiskChangesNothingWithoutASingleFilterCall) {
  const std::vector<Guid> keys = world.FilterKeys();
  world.machine().files.SetFull(true);
  world.machine().faults.FailAlways("BeginTransaction", platform::kInUse);
  const std::wstring error = ErrorOf(world.Set(after));
  EXPECT_TRUE(
      error.starts_with(L"The configuration cannot be saved, so nothing was changed: cannot write "
                        L"C:\\ProgramData\\Kestrelon\\config.json.new.tmp: 0x00000070"))
      << Utf8FromWide(error);
  EXPECT_FALSE(world.machine().faults.fired());
  EXPECT_EQ(world.FilterKeys(), keys);
  world.machine().files.SetFull(false);
  ExpectUnchanged();
}

TEST_F(ConfigChange, ARefusalOfTheEngineKeepsThePreviousFiltersAndMakesNoBackup) {
  const std::vector<Guid> keys = world.FilterKeys();
  ASSERT_TRUE(world.machine().watches.WaitForOpen(1));
  world.machine().faults.FailOnce("CommitTransaction", platform::kTransactionTimeout);
  EXPECT_EQ(ErrorOf(world.Set(after)).substr(0, 34), L"FwpmTransactionCommit0: 0x80320012");
  EXPECT_EQ(world.FilterKeys(), keys);
  EXPECT_EQ(Backups(), 0U);
  EXPECT_TRUE(world.Logged(
      L"Rejected configuration (previous filters kept): FwpmTransactionCommit0: 0x80320012"));
  ExpectUnchanged();
  const std::uint32_t applies = Core.ApplyCount;
  LoopPass();
  EXPECT_EQ(Core.ApplyCount, applies) << "what is in force has not drifted";
  world.machine().files.Write(kTool, "replaced");
  world.machine().watches.WaitForWatchers();
  EXPECT_FALSE(world.Reaches(kTool)) << "its permission is still by its hash";
}

TEST_F(ConfigChange, ASaveThatFailsAfterAGoodApplyBringsThePreviousFiltersBack) {
  // The first rename is the disk test's, the second the save's.
  world.machine().faults.FailNthOf("RenameFile", 2, platform::kAccessDenied);
  EXPECT_TRUE(ErrorOf(world.Set(after))
                  .starts_with(L"The configuration could not be saved, so the change was undone: "
                               L"cannot replace C:\\ProgramData\\Kestrelon\\config.json: "
                               L"0x00000005"));
  EXPECT_TRUE(world.Logged(L"Saving the configuration failed (cannot replace "));
  ExpectUnchanged();
}

// Without applications nothing on the machine would ever look as if it had drifted.
TEST_F(ConfigChange, ADoubleFailureEndsInBlockAllUntilTheLiveOneIsBack) {
  Config live = ConfigOf({});
  live.rules = {AllowRule(L"live")};
  ASSERT_TRUE(world.Set(live)["ok"].boolean());
  world.machine().faults.FailNthOf("RenameFile", 2, platform::kAccessDenied);
  // The change itself with its boot-time filters, the way back, then block-all.
  world.machine().faults.FailNthOf("CommitTransaction", 3, platform::kTransactionTimeout);
  EXPECT_TRUE(
      ErrorOf(world.Set(after))
          .starts_with(L"The configuration could not be saved, so the change was undone: "));
  EXPECT_TRUE(world.Logged(L"Restoring the previous filters failed: FwpmTransactionCommit0: "));
  EXPECT_TRUE(world.Logged(L"Block-all fallback is active"));
  for (const wchar_t* program : {kTool, kOther}) {
    EXPECT_FALSE(world.Reaches(program));
  }
  EXPECT_TRUE(world.Passes(Loopback(Out(kTool, L"127.0.0.1", 80))));
  EXPECT_EQ(world.ConfigOnDisk(), live);
  EXPECT_EQ(world.LastError().substr(0, 34), L"FwpmTransactionCommit0: 0x80320012");
  LoopPass();
  EXPECT_TRUE(world.Reaches(kTool));
  EXPECT_EQ(world.LastError(), L"");
}

TEST_F(ConfigChange, ProtectionOffLeavesNoFilterAndOnBringsThemBack) {
  before.enabled = false;
  EXPECT_TRUE(world.Set(before)["ok"].boolean());
  EXPECT_TRUE(world.machine().engine.Filters().empty());
  EXPECT_TRUE(world.Logged(L"Protection turned OFF"));
  before.enabled = true;
  EXPECT_TRUE(world.Set(before)["ok"].boolean());
  EXPECT_TRUE(world.Logged(L"Protection turned ON"));
  ExpectUnchanged();
}

using StrictFallback = Scenario;

TEST_F(StrictFallback, BlocksAllButLoopbackAndEndsWithAnAcceptedConfiguration) {
  world.machine().files.Write(kConfigFile, "damaged");
  ASSERT_TRUE(world.Start());
  EXPECT_FALSE(world.Passes(Udp(Out(kSvchost, L"192.0.2.53", 53))));
  EXPECT_FALSE(world.Passes(Out(L"System", L"192.168.1.1", 445)));
  EXPECT_TRUE(world.Passes(Loopback(Out(kTool, L"127.0.0.1", 80))));
  const auto fallback = [] {
    GuardLock lock(ConfigGuard);
    return std::pair(Core.FallbackKind, Core.FallbackCause);
  };
  EXPECT_EQ(fallback(), std::pair(std::wstring(L"strict"), std::wstring(L"corrupt")));
  EXPECT_TRUE(world.Set(Config())["ok"].boolean());
  EXPECT_EQ(fallback(), std::pair(std::wstring(), std::wstring()));
}

}  // namespace
}  // namespace kestrelon::test

// The core's loop on a held clock, pass by pass: what it heeds, in which order, and what it does
// when the doing fails. The loop's own thread runs in the last cases.
#include "core/core_loop.h"

#include "base/text.h"
#include "filtering/filter_keys.h"
#include "tests/scenario/client.h"
#include "tests/scenario/intruder.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

constexpr std::int64_t kStepsPerMs = 10000;

void DeleteOneFilter() {
  Intruder intruder;
  intruder.Delete(intruder.FirstFilter().key);
}

class CoreLoopTest : public Scenario {
 protected:
  void Begin(const Config& config) {
    ASSERT_TRUE(world.StartWith(config));
    LoopPass();
    applies_ = Core.ApplyCount;
  }

  // Whether the pass applied again.
  bool PassApplies() {
    LoopPass();
    const bool applied = Core.ApplyCount != applies_;
    applies_ = Core.ApplyCount;
    return applied;
  }

  std::uint32_t Delay() {
    GuardLock lock(ConfigGuard);
    return NextPassDelayMs();
  }

  // The word of a pass that applies, read from the line about its failure.
  std::wstring CauseOfPass() {
    world.machine().faults.FailOnce("CommitTransaction", next_code_++);
    const std::size_t logged = world.Log().size();
    LoopPass();
    world.machine().faults.Clear();
    const std::wstring line = world.Log().substr(logged);
    const std::size_t begin = line.find(L"Re-apply (");
    if (begin == std::wstring::npos) return L"";
    return line.substr(begin + 10, line.find(L')', begin) - begin - 10);
  }

  std::uint32_t applies_ = 0;
  platform::Code next_code_ = 0x80320100;  // a text of its own each time, so that it is logged
};

TEST_F(CoreLoopTest, TheNextPassComesAtTheNextExpiryAndNeverEarly) {
  const std::int64_t now = world.machine().clock.SystemTime();
  const struct {
    std::vector<std::int64_t> expiries_in_ms;
    std::uint32_t delay_ms;
  } cases[] = {
      {{}, 15000},      {{3000}, 3050},   {{9000, 3000, 12000}, 3050}, {{-86400000}, 50},
      {{14950}, 15000}, {{14949}, 14999}, {{3600000}, 15000},          {{0}, 50},
  };
  for (const auto& c : cases) {
    GuardLock lock(ConfigGuard);
    Core.CurrentConfig.apps = {Allowed(kTool)};
    for (const std::int64_t in_ms : c.expiries_in_ms) {
      AppEntry app = Allowed(kOther);
      app.expires = now + in_ms * kStepsPerMs;
      Core.CurrentConfig.apps.push_back(app);
    }
    EXPECT_EQ(NextPassDelayMs(), c.delay_ms);
  }
}

TEST_F(CoreLoopTest, ATemporaryPermissionEndsOnTimeIsSavedLoggedAndTold) {
  Config config = ConfigOf({Allowed(kTool), Allowed(kOther)});
  config.apps[1].expires = world.machine().clock.SystemTime() + 3000 * kStepsPerMs;
  Begin(config);
  world.machine().clock.Advance(2999);
  EXPECT_FALSE(PassApplies());
  EXPECT_TRUE(world.Reaches(kOther));
  world.machine().clock.Advance(Delay());
  EXPECT_TRUE(PassApplies());
  EXPECT_FALSE(world.Reaches(kOther));
  EXPECT_TRUE(world.Reaches(kTool));
  EXPECT_TRUE(world.Logged(L"Temporary permission ended: C:\\Tools\\other.exe"));
  ASSERT_EQ(world.ConfigOnDisk().apps.size(), 1U);
  EXPECT_EQ(world.machine().files.Names(L"C:\\ProgramData\\Kestrelon\\backups").size(), 1U);
}

TEST_F(CoreLoopTest, APermissionUntilRebootEndsWithTheNextStart) {
  Config config = ConfigOf({Allowed(kTool)});
  config.apps[0].until_reboot = true;
  config.apps[0].added = world.machine().clock.SystemTime();
  Begin(config);
  EXPECT_TRUE(world.Reaches(kTool));
  world.machine().clock.Advance(3'600'000);
  world.Restart();
  ASSERT_TRUE(world.Start());
  EXPECT_FALSE(world.Reaches(kTool));
  EXPECT_TRUE(world.ConfigOnDisk().apps.empty());
}

TEST_F(CoreLoopTest, EachKindOfTamperingIsFoundToldAndUndone) {
  Config config = ConfigOf({Allowed(kTool)});
  config.rules = {BlockRule(L"never")};
  config.rules[0].remote = L"203.0.113.66";
  Begin(config);
  const struct {
    void (*tamper)(World& machine);
    const wchar_t* reason;
  } cases[] = {
      {[](World&) {
         Intruder intruder;
         platform::Filter filter = intruder.FirstFilter();
         intruder.Delete(filter.key);
         filter.weight = std::uint8_t{2};
         intruder.Add(filter);
       },
       L" was modified"},
      {[](World& target) { Intruder().DeleteEverything(target); }, L"0 filters present, "},
      {[](World& target) { Intruder().Demote(target); }, L"0 filters present, "},
      {[](World&) { Intruder().Delete(BootFilterKeys[0]); },
       L"7 boot-time filters present, 8 expected"},
  };
  std::uint32_t restores = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(Utf8FromWide(c.reason));
    const std::size_t logged = world.Log().size();
    c.tamper(world);
    EXPECT_TRUE(PassApplies());
    const std::wstring log = world.Log().substr(logged);
    EXPECT_NE(log.find(L"Kestrelon filters were modified externally ("), std::wstring::npos);
    EXPECT_NE(log.find(std::wstring(c.reason)), std::wstring::npos) << Utf8FromWide(log);
    EXPECT_EQ(Core.TamperRestores, ++restores);
    EXPECT_TRUE(world.Reaches(kTool));
    EXPECT_FALSE(world.Passes(Out(kTool, L"203.0.113.66", 443)));
    EXPECT_FALSE(world.Reaches(kOther));
    const std::size_t restored = world.Log().size();
    EXPECT_FALSE(PassApplies()) << "restored as a whole";
    EXPECT_EQ(world.Log().size(), restored) << "an idle pass says nothing";
  }
}

TEST_F(CoreLoopTest, TamperedFiltersThatCannotBeRestoredGiveWayToBlockAll) {
  Begin(ConfigOf({Allowed(kTool)}));
  DeleteOneFilter();
  world.machine().faults.FailAlways("CommitTransaction", platform::kTransactionTimeout);
  EXPECT_TRUE(PassApplies());
  EXPECT_TRUE(world.Logged(L"Re-apply (tamper) failed: FwpmTransactionCommit0: 0x80320012"));
  EXPECT_TRUE(world.Logged(L"CRITICAL: block-all fallback failed: FwpmTransactionCommit0: "));
  world.machine().faults.Clear();
  world.machine().faults.FailOnce("CommitTransaction", platform::kTransactionTimeout);
  EXPECT_TRUE(PassApplies());
  EXPECT_TRUE(world.Logged(L"Block-all fallback is active"));
  EXPECT_FALSE(world.Reaches(kTool));
  EXPECT_TRUE(world.Passes(Loopback(Out(kTool, L"127.0.0.1", 80))));
  EXPECT_NE(world.LastError(), L"");
  // The user's configuration is retried, and comes back.
  EXPECT_TRUE(PassApplies());
  EXPECT_EQ(world.LastError(), L"");
  EXPECT_TRUE(world.Reaches(kTool));
}

TEST_F(CoreLoopTest, AnApplicationThatMerelyFailsKeepsTheFiltersAndIsRetriedInSilence) {
  Begin(ConfigOf({Allowed(kTool)}));
  const std::vector<Guid> keys = world.FilterKeys();
  world.machine().network.SetDnsServers({L"192.0.2.54"});
  world.machine().faults.FailAlways("CommitTransaction", platform::kTransactionTimeout);
  const std::uint32_t failures = Core.ApplyFailures;
  LoopPass();
  const std::size_t logged = world.Log().size();
  LoopPass();
  EXPECT_EQ(world.Log().size(), logged) << "the same text is no news";
  EXPECT_EQ(Core.ApplyFailures, failures + 2);
  EXPECT_FALSE(world.Logged(L"Block-all"));
  EXPECT_EQ(world.FilterKeys(), keys);
  world.machine().faults.Clear();
  LoopPass();
  EXPECT_EQ(world.LastError(), L"");
  EXPECT_NE(world.FilterKeys(), keys);
}

TEST_F(CoreLoopTest, TheLastCauseInOrderIsTheWord) {
  Config config = ConfigOf({Allowed(kTool)});
  config.apps.push_back(Allowed(L"C:\\App-1.0\\app.exe"));
  config.apps.push_back(Allowed(L"C:\\App-2.0\\app.exe"));
  for (std::size_t i : {1U, 2U}) config.apps[i].signer = kPublisher;
  config.updates_auto_check = true;  // as the block-all fallback has it, so that no rule is due
  world.Signed(L"C:\\App-1.0\\app.exe", "one", kPublisher);
  world.Signed(L"C:\\App-2.0\\app.exe", "two", kPublisher);
  Begin(config);
  // Each fails and leaves "retry" to the ones after it.
  world.machine().network.SetDnsServers({L"192.0.2.77"});
  EXPECT_EQ(CauseOfPass(), L"files changed");
  EXPECT_EQ(CauseOfPass(), L"retry");
  world.machine().faults.FailOnce("OpenFilterEnum", platform::kSessionAborted);
  EXPECT_EQ(CauseOfPass(), L"reconnect");
  EXPECT_TRUE(world.Logged(L"WFP engine connection lost - reconnecting"));
  DeleteOneFilter();
  EXPECT_EQ(CauseOfPass(), L"tamper");
  DeleteOneFilter();
  Core.WatchRebuildPending = true;
  EXPECT_EQ(CauseOfPass(), L"watch rebuild");
  Core.WatchRebuildPending = true;
  Core.ChangedFilePending = true;
  EXPECT_EQ(CauseOfPass(), L"file changed");
  Core.ChangedFilePending = true;
  world.machine().files.Remove(L"C:\\App-1.0\\app.exe");
  EXPECT_EQ(CauseOfPass(), L"prune");
  EXPECT_EQ(world.ConfigOnDisk().apps.size(), 2U);
  LoopPass();
  EXPECT_EQ(world.LastError(), L"");
}

TEST_F(CoreLoopTest, WithProtectionOffOnlyAuditExpiryAndRetryRun) {
  Config config = ConfigOf({Allowed(kTool)});
  config.enabled = false;
  config.apps.push_back(Allowed(kOther));
  config.apps[1].expires = world.machine().clock.SystemTime() + 1000 * kStepsPerMs;
  Begin(config);
  Core.WatchRebuildPending = true;
  world.machine().network.SetDnsServers({L"192.0.2.99"});
  world.machine().files.Write(kTool, "something else");
  EXPECT_FALSE(PassApplies());
  world.machine().clock.Advance(1050);
  EXPECT_TRUE(PassApplies()) << "expiry";
  {
    Intruder intruder;
    intruder.Add(intruder.ForeignFilter());
  }
  world.machine().faults.FailOnce("CommitTransaction", platform::kTransactionTimeout);
  EXPECT_TRUE(PassApplies()) << "audit";
  EXPECT_TRUE(PassApplies()) << "retry";
  EXPECT_EQ(world.LastError(), L"");
  Core.WatchRebuildPending = false;
}

TEST_F(CoreLoopTest, ALostEngineIsWaitedForAndWhatFellDueMeanwhileIsMadeUpFor) {
  Config config = ConfigOf({Allowed(kTool), Allowed(kOther)});
  config.apps[1].expires = world.machine().clock.SystemTime() + 1000 * kStepsPerMs;
  Begin(config);
  world.machine().engine.Stop();
  EXPECT_FALSE(PassApplies());
  const std::wstring log = world.Log();
  world.machine().clock.Advance(60000);
  EXPECT_FALSE(PassApplies());
  EXPECT_EQ(world.Log(), log) << "without a session not even an expiry runs";
  EXPECT_FALSE(world.Reaches(kBrowser));
  EXPECT_TRUE(world.Reaches(kTool));
  world.machine().engine.Start();
  EXPECT_TRUE(PassApplies());
  EXPECT_FALSE(world.Reaches(kOther));
  EXPECT_FALSE(PassApplies());
}

TEST_F(CoreLoopTest, AChangedInterfaceWakesTheLoop) {
  Begin(ConfigOf({}));
  Core.WakeEvent.Clear();
  world.machine().network.ChangeInterfaces();
  EXPECT_EQ(platform::WaitForAny({&Core.WakeEvent}, 0), 0);
}

TEST_F(CoreLoopTest, OnItsOwnThreadAWakeIsServedAndTheStopEndsIt) {
  Begin(ConfigOf({Allowed(kTool)}));
  world.RunLoop();
  const std::uint32_t restores = Core.TamperRestores;
  DeleteOneFilter();
  while (Core.TamperRestores == restores) std::this_thread::yield();
  Client client;
  EXPECT_EQ(client.Command("status").Get("last_error").StringOr(L"?"), L"");
  EXPECT_TRUE(world.Reaches(kTool));
  Core.WakeEvent.Set();
  world.Stop();
  EXPECT_TRUE(world.Logged(L"Kestrelon service stopping (filters stay active)"));
}

}  // namespace
}  // namespace kestrelon::test

// What the status tells of updates, and when their way out is open.
#include "updates/update_state.h"

#include <gtest/gtest.h>

#include "core/core_state.h"
#include "simulation/machine/machine.h"
#include "updates/update_traffic.h"

namespace kestrelon {
namespace {

TEST(UpdateStatus, TellsWhatApplies) {
  const UpdateManifest latest = {L"stable", L"1.3.0", 50, L"today", L"u", 9, L"h", L"sk", L"en"};
  const LastInstall failed = {L"1.2.9", L"failed", L"why", 7};
  const struct {
    UpdateState update;
    bool automatic;
    const wchar_t* channel;
    const char* status;
  } cases[] = {
      {{kUpdateDownloading, L"", 42, 5, false, latest, {}},
       false,
       L"test",
       R"({"state":"downloading","auto":false,"channel":"test","last_check":5,"progress":42})"},
      {{kUpdateError, L"no", 42, 134397360000000000, true, latest, failed},
       true,
       L"stable",
       R"({"state":"error","auto":true,"channel":"stable","last_check":134397360000000000,)"
       R"("error":"no","latest":{"version":"1.3.0","build":50,"date":"today","size":9,)"
       R"("notes_sk":"sk","notes_en":"en"},"last_install":{"version":"1.2.9",)"
       R"("result":"failed","detail":"why","time":7}})"},
  };
  for (const auto& [update, automatic, channel, status] : cases) {
    simulation::TheMachine().registry.SetText(L"SOFTWARE\\Kestrelon", L"UpdateChannel", channel);
    Config config;
    config.updates_auto_check = automatic;
    {
      GuardLock lock(UpdateGuard);
      Update = update;
    }
    EXPECT_EQ(UpdateStatus(config).Dump(false), status);
  }
}

// One without an application would be for all of them.
TEST(UpdateTraffic, HasNoRuleWhileTheOwnExecutableIsUnknown) {
  std::vector<RuleEntry> rules;
  simulation::TheMachine().faults.FailOnce("ExecutableFile", platform::kAccessDenied);
  EXPECT_TRUE(UpdateTrafficRules(Config(), rules));
  EXPECT_TRUE(rules.empty());
}

TEST(UpdateTraffic, IsWaitedForUnlessTheServiceStops) {
  const struct {
    bool installed, stop;
    std::uint64_t waits_ms;
    bool asks;
  } cases[] = {{true, false, 300, false}, {false, false, 5300, true}, {false, true, 0, true}};
  simulation::Clock& clock = simulation::TheMachine().clock;
  for (const auto& [installed, stop, waits_ms, asks] : cases) {
    UpdateSignals.UpdateRuleInstalled = installed;
    UpdateSignals.stop = stop;
    UpdateSignals.UpdateRuleWanted = false;
    const std::uint64_t before = clock.Tick();
    NeedUpdateTraffic();
    EXPECT_EQ(clock.Tick() - before, waits_ms);
    EXPECT_TRUE(UpdateSignals.UpdateRuleWanted);
    EXPECT_EQ(UpdateSignals.UpdateStatusChanged.exchange(false), asks);
    EXPECT_EQ(platform::WaitForAny({&Core.WakeEvent}, 0) == 0, asks);
  }
}

}  // namespace
}  // namespace kestrelon

// When a look for an update starts, and that one thread at a time does update work.
#include "updates/update_worker.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "simulation/machine/machine.h"
#include "updates/update_settings.h"
#include "updates/update_state.h"

namespace kestrelon {
namespace {

const std::wstring kAddress = L"https://localhost:28444/update/latest.json";
const std::wstring kInstaller = L"https://localhost:28444/update/setup.exe";
const std::wstring kDirectory = L"C:\\ProgramData\\Kestrelon\\update\\";
constexpr std::uint64_t kSettleMs = 300;  // what a check takes on a held clock
constexpr std::uint64_t kHourMs = 3600000;
constexpr std::uint64_t kDayMs = 24 * kHourMs;
// The counter, which makes 10000 steps in a ms, adds up to 5 minutes.
constexpr std::uint64_t kStartTick = simulation::kFirstTick + 15;
constexpr std::uint64_t kFirstDelayMs = 600000 + kStartTick * 10000 % 300000;

class UpdateSchedule : public testing::Test {
 protected:
  UpdateSchedule() {
    machine.files.MakeDirectories(kDirectory);
    machine.http.Serve(kAddress, {.status = 404});
    machine.clock.Advance(kStartTick - simulation::kFirstTick);
    UpdateSignals.UpdateRuleInstalled = true;
    StartUpdateSchedule();
  }
  void TearDown() override {
    StopUpdates();
    EXPECT_EQ(machine.http.open_handles(), 0U);
  }

  void Work(bool manual = false) {
    GuardLock lock(ConfigGuard);
    UpdateWorker(config, manual);
  }

  // Whether a check was started and has ended.
  bool Checks(bool manual = false) {
    const std::size_t before = machine.http.Requests().size();
    Work(manual);
    while (UpdateSignals.busy) std::this_thread::yield();
    return machine.http.Requests().size() != before;
  }

  // The refusal of an installation; empty when one was started.
  static std::wstring Refusal() {
    std::wstring error;
    return RequestInstall(-1, L"en", error) ? std::wstring() : error;
  }

  static void SetState(const wchar_t* state, bool available) {
    GuardLock lock(UpdateGuard);
    Update.state = state;
    Update.available = available;
    Update.latest.url = kInstaller;
    Update.latest.size = 9;
  }

  simulation::Machine& machine = simulation::TheMachine();
  Config config;
};

TEST_F(UpdateSchedule, ChecksLateAfterTheStartAndEachHourWhileThatFails) {
  const struct {
    std::uint64_t later_ms;
    bool automatic, manual, checks;
  } steps[] = {
      {kFirstDelayMs - 1, true, false, false},
      {1, false, false, false},
      {0, true, false, true},
      {0, false, true, true},  // the user's own does not wait, but counts
      {kHourMs - kSettleMs - 1, true, false, false},
      {1, true, false, true},
  };
  for (const auto& step : steps) {
    machine.clock.Advance(step.later_ms);
    config.updates_auto_check = step.automatic;
    EXPECT_EQ(Checks(step.manual), step.checks) << &step - steps;
  }
}

TEST_F(UpdateSchedule, ChecksADayAfterTheLastGoodCheck) {
  const struct {
    std::uint64_t age_ms;  // an hour after the start
    bool checks;
  } cases[] = {{kDayMs, true}, {kDayMs - 1, false}, {kHourMs, false}, {kHourMs - 1, true}};
  for (const auto& [age_ms, checks] : cases) {
    const auto age = static_cast<std::int64_t>(age_ms) - std::int64_t{kHourMs};
    StoreLastCheck(machine.clock.SystemTime() - age * platform::kTimeStepsPerMs);
    StartUpdateSchedule();
    machine.clock.Advance(kHourMs);
    EXPECT_EQ(Checks(), checks) << age_ms;
  }
  machine.clock.Advance(kHourMs);
  {
    GuardLock lock(UpdateGuard);
    Update.LastUpdateCheck = machine.clock.SystemTime() + 1;
  }
  EXPECT_TRUE(Checks()) << "the clock was set back";
}

TEST_F(UpdateSchedule, StartsWhatTheStateAllows) {
  const std::wstring none = L"no update is available";
  const struct {
    const wchar_t* state;
    bool available, automatic, manual;
    std::wstring refusal;
  } cases[] = {
      {L"error", false, true, true, none},
      {L"error", true, true, true, L""},
      {L"available", true, true, true, L""},
      {L"downloading", false, false, true, none},
      {L"installing", true, false, false, L"the update is already being installed"},
  };
  for (const auto& [state, available, automatic, manual, refusal] : cases) {
    machine.clock.Advance(kHourMs);
    SetState(state, available);
    EXPECT_EQ(Checks(), automatic) << state;
    SetState(state, available);
    EXPECT_EQ(Checks(true), manual) << state;
    SetState(state, available);
    EXPECT_EQ(Refusal(), refusal) << state;
    while (UpdateSignals.busy) std::this_thread::yield();
  }
}

TEST_F(UpdateSchedule, CleansTheDirectoryOnceThreeMinutesAfterTheStart) {
  const std::wstring kept = kDirectory + L"Install.LOG";
  const std::wstring left = kDirectory + L"setup.exe.part";
  machine.files.Write(kept, "log");
  machine.files.MakeDirectories(kDirectory + L"other");
  for (const auto& [later_ms, stays] : {std::pair(180000, true), {1, false}, {180000, true}}) {
    machine.files.Write(left, "part");
    machine.clock.Advance(static_cast<std::uint64_t>(later_ms));
    Work();
    EXPECT_EQ(machine.files.Exists(left), stays);
  }
  EXPECT_TRUE(machine.files.Exists(kept));
}

TEST_F(UpdateSchedule, NoticesAnInstallerThatFailed) {
  ASSERT_EQ(StorePendingInstall({49, L"1.2.3", 0, kNoSession}), platform::kSuccess);
  SetState(kUpdateInstalling, true);
  Work();
  EXPECT_EQ(UpdateStateName(), L"installing");
  StoreHelperExit(5);
  Work();
  EXPECT_EQ(UpdateStateName(), L"error");
}

TEST_F(UpdateSchedule, StartsOneOfManyThatComeAtOnceAndEndsItAtOnce) {
  machine.http.Serve(kInstaller, {.silent = true});
  machine.http.Serve(kAddress, {.silent = true});
  SetState(kUpdateAvailable, true);
  std::atomic<int> installs = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] { Work(true); });
    threads.emplace_back([&installs] { installs += Refusal().empty() ? 1 : 0; });
  }
  for (std::thread& thread : threads) thread.join();
  machine.http.WaitForBlocked();
  EXPECT_EQ(Refusal(), L"an update check or download is already running");
  const auto requests = machine.http.Requests();
  EXPECT_EQ(requests.size(), 1U);
  EXPECT_EQ(installs, requests.front().url == kInstaller ? 1 : 0);

  StopUpdates();
  EXPECT_EQ(UpdateStateName(), L"error");
  Work(true);
  EXPECT_FALSE(UpdateSignals.busy) << "after a stop none starts";
  EXPECT_EQ(Refusal(), L"the service is stopping");
}

}  // namespace
}  // namespace kestrelon

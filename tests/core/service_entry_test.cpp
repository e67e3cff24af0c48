#include "core/service_entry.h"

#include <gtest/gtest.h>

#include <future>

#include "base/format.h"
#include "core/command_line.h"
#include "core/core_state.h"
#include "platform/service_host.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

constexpr const wchar_t* kStartPending = L"state 2 accepts 0 exit 0/0 check point 1 hint 90000";
constexpr const wchar_t* kRunning = L"state 4 accepts 133 exit 0/0 check point 0 hint 0";
constexpr const wchar_t* kStopPending = L"state 3 accepts 0 exit 0/0 check point 2 hint 10000";
constexpr const wchar_t* kStopped = L"state 1 accepts 0 exit 0/0 check point 0 hint 0";
constexpr const wchar_t* kStartFailed = L"state 1 accepts 0 exit 1066/1 check point 0 hint 0";

using Lines = std::vector<std::wstring>;

class ServiceProcess : public testing::Test {
 protected:
  ServiceProcess() { machine_.service_host.started_by_manager = true; }

  void TearDown() override { EXPECT_EQ(machine_.engine.open_sessions(), 0U); }

  Lines Reports() {
    Lines lines;
    for (const platform::ServiceReport& report : machine_.service_host.reports()) {
      lines.push_back(Format(L"state %u accepts %u exit %u/%u check point %u hint %u", report.state,
                             report.accepts, report.exit_code, report.specific_exit_code,
                             report.check_point, report.wait_hint_ms));
    }
    return lines;
  }

  simulation::Machine& machine_ = simulation::TheMachine();
};

TEST_F(ServiceProcess, ReportsEachStateUntilTheManagerStopsIt) {
  machine_.clock.Run();
  std::future<int> run = std::async(std::launch::async, [] { return RunCommandLine({}); });
  machine_.service_host.WaitForState(platform::kServiceRunning);
  EXPECT_EQ(machine_.service_host.SendControl(platform::kControlInterrogate), 0U);
  EXPECT_EQ(machine_.service_host.SendControl(platform::kControlSessionChange), 0U);
  EXPECT_EQ(Reports(), (Lines{kStartPending, kRunning}));

  EXPECT_EQ(machine_.service_host.SendControl(platform::kControlStop), 0U);
  EXPECT_EQ(run.get(), 0);
  const Lines all = {kStartPending, kRunning, kStopPending, kStopped};
  EXPECT_EQ(Reports(), all);
  EXPECT_FALSE(machine_.engine.Filters().empty());
  // One that was on its way when the service ended.
  EXPECT_EQ(HandleServiceControl(platform::kControlStop), 0U);
  EXPECT_EQ(Reports(), all);
}

TEST_F(ServiceProcess, DoesNotComeBackFromAStopThatMeetsItsStart) {
  machine_.faults.RunBefore("OpenEngineSession",
                            [] { (void)HandleServiceControl(platform::kControlShutdown); });
  EXPECT_EQ(RunCommandLine({}), 0);
  EXPECT_EQ(Reports(), (Lines{kStartPending, kStopPending, kStopped}));
}

TEST_F(ServiceProcess, FailsAfterAMinuteWithoutAnEngine) {
  machine_.engine.Stop();
  const std::uint64_t begin = machine_.clock.Tick();
  EXPECT_EQ(RunCommandLine({}), 0);
  EXPECT_EQ(Reports(), (Lines{kStartPending, kStartFailed}));
  EXPECT_EQ(machine_.clock.Tick() - begin, 59000U);
}

TEST_F(ServiceProcess, DoesNothingWithoutALineToTheManager) {
  machine_.faults.FailAlways("RegisterServiceControls", platform::kAccessDenied);
  EXPECT_EQ(RunCommandLine({}), 0);
  EXPECT_TRUE(Reports().empty());
  EXPECT_FALSE(machine_.files.Exists(L"C:\\ProgramData\\Kestrelon"));
}

TEST(ServiceControls, AreAnsweredByTheirCode) {
  const auto is_set = [](platform::Event& event) {
    const bool set = platform::WaitForAny({&event}, 0) == 0;
    event.Clear();
    return set;
  };
  constexpr std::uint32_t controls[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 128};
  for (const std::uint32_t control : controls) {
    SCOPED_TRACE(control);
    const bool stops = control == 1 || control == 5;
    const bool wakes = control == 14;
    const bool known = stops || wakes || control == 4;
    EXPECT_EQ(HandleServiceControl(control), known ? 0U : 120U);
    EXPECT_EQ(is_set(Core.StopEvent), stops);
    EXPECT_EQ(is_set(Core.WakeEvent), wakes);
  }
}

}  // namespace
}  // namespace kestrelon

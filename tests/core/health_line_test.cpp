#include "core/health_line.h"

#include <gtest/gtest.h>

#include "modules/module_processes.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

class HealthLineTest : public testing::Test {
 protected:
  HealthLineTest() { machine.files.MakeDirectories(L"C:\\ProgramData\\Kestrelon"); }

  // What is logged once the time has passed, without its date.
  std::string LineAfter(std::uint64_t milliseconds) {
    const std::wstring log = L"C:\\ProgramData\\Kestrelon\\service.log";
    machine.files.Remove(log);
    machine.clock.Advance(milliseconds);
    GuardLock lock(ConfigGuard);
    HealthLine();
    const std::string text = machine.files.Read(log).value_or("");
    return text.empty() ? text : text.substr(text.find("  ") + 2);
  }

  simulation::Machine& machine = simulation::TheMachine();
};

TEST_F(HealthLineTest, ComesFiveMinutesAfterTheStartAndEveryHourThen) {
  const struct {
    std::uint64_t milliseconds;
    bool line;
  } steps[] = {{299'999, false}, {1, true},         {0, false},         {3'599'999, false},
               {1, true},        {7'200'000, true}, {3'599'999, false}, {1, true}};
  for (const auto& step : steps) {
    EXPECT_EQ(LineAfter(step.milliseconds).starts_with("Health: "), step.line)
        << "at " << machine.clock.Tick();
  }
}

TEST_F(HealthLineTest, SumsUpTheStateOfTheService) {
  machine.process_use.working_set_bytes = 25'795'584;
  machine.process_use.private_bytes = 9'437'184;
  machine.process_use.handles = 321;
  Core.NetEvents = std::uint64_t{1} << 63;
  Core.NetDrops = 4;
  Core.ApplyCount = 5;
  Core.ApplyFailures = 6;
  Core.TamperRestores = 7;
  Core.ChangedFilesBlocked = 8;
  {
    GuardLock lock(ModuleGuard);
    ModuleProcesses.resize(9);
  }
  EXPECT_EQ(LineAfter(5'400'000),
            "Health: up 1.5 h, memory 24.6 MB (private 9.0 MB), 321 handles, protection on, "
            "0 filters, net events 9223372036854775808 (Kestrelon drops 4), applies 5 (failed 6), "
            "restored after tampering 7, changed files blocked 8, modules running 9\r\n");
}

}  // namespace
}  // namespace kestrelon

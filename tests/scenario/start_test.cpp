// From an empty process to a protected machine.
#include <utility>

#include "base/text.h"
#include "config/presets.h"
#include "core/config_change.h"
#include "core/core_loop.h"
#include "core/core_state.h"
#include "platform/codes.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

using Start = Scenario;

TEST_F(Start, TheFirstStartMakesTheDefaultInAClosedDirectory) {
  ASSERT_TRUE(world.Start());
  EXPECT_EQ(world.ConfigOnDisk(), DefaultConfig());
  EXPECT_FALSE(world.machine().files.Protection(L"C:\\ProgramData\\Kestrelon").empty());
  const std::wstring log = world.Log();
  EXPECT_EQ(log.find(L"2026-11-21 12:00:00  Kestrelon service 1.2.2 (48) starting\r\n"), 0U);
  EXPECT_TRUE(world.Logged(L"Created default configuration (strict whitelist)"));
  EXPECT_TRUE(world.Logged(L"Filters applied: "));
  EXPECT_TRUE(world.Logged(L"(protection ON)"));
  GuardLock lock(ConfigGuard);
  EXPECT_EQ(Core.FallbackKind, L"");
}

TEST_F(Start, AnOlderConfigurationIsUpgradedLoggedAndSaved) {
  Config old;
  old.presets_version = 8;
  world.PutConfig(old);
  ASSERT_TRUE(world.Start());
  EXPECT_TRUE(world.Logged(L"Predefined rules updated to generation 9 (new ones added)"));
  EXPECT_EQ(world.ConfigOnDisk().presets_version, 9);
  EXPECT_EQ(world.ConfigOnDisk(std::wstring(kConfigFile) + L".lastgood"), world.ConfigOnDisk());
}

TEST_F(Start, AFirstApplyThatFailsEndsInBlockAllAndGoesOn) {
  world.machine().faults.FailOnce("CommitTransaction", platform::kTransactionTimeout);
  ASSERT_TRUE(world.StartWith(ConfigOf({Allowed(kTool)})));
  EXPECT_TRUE(world.Logged(L"Applying the configuration failed: FwpmTransactionCommit0: "));
  EXPECT_TRUE(world.Logged(L"Block-all fallback is active"));
  EXPECT_FALSE(world.Reaches(kTool));
  EXPECT_NE(world.LastError(), L"");
  EXPECT_TRUE(world.ConfigOnDisk().apps[0].sha256.empty());
  LoopPass();
  EXPECT_TRUE(world.Reaches(kTool)) << "the user's configuration stays live";
  // Compiling says only once what it learnt, and the engine had refused those filters.
  EXPECT_EQ(world.ConfigOnDisk().apps[0].sha256.size(), 1U);
}

// Else a program would be learnt anew at the next start, whatever it is by then.
TEST_F(Start, WhatIsLearntIsSavedByTheNextApplicationWhenThisOneOrItsSavingFails) {
  const std::pair<const char*, std::uint64_t> failing[] = {
      {"CommitTransaction", 1}, {"RenameFile", 2},  // behind that of the last working copy
  };
  for (const auto& [call, n] : failing) {
    SCOPED_TRACE(call);
    world.machine().faults.FailNthOf(call, n, platform::kAccessDenied);
    ASSERT_TRUE(world.StartWith(ConfigOf({Allowed(kTool)})));
    EXPECT_TRUE(world.machine().faults.fired());
    EXPECT_TRUE(world.ConfigOnDisk().apps[0].sha256.empty());
    {
      GuardLock lock(ConfigGuard);
      ReApply(L"retry");
    }
    EXPECT_EQ(world.ConfigOnDisk().apps[0].sha256,
              std::vector<std::wstring>{HashText("tool, first version")});
    world.Restart();
  }
}

}  // namespace
}  // namespace kestrelon::test

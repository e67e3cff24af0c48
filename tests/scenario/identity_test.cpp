// What is recorded of programs survives what happens around it.
#include "core/config_change.h"
#include "platform/codes.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

const std::vector<std::wstring> kLearnt = {HashText("tool, first version")};

class Identity : public Scenario {
 protected:
  // What the loop does when a file has changed.
  void Reapply() {
    GuardLock lock(ConfigGuard);
    ReApply(L"files changed");
    EXPECT_EQ(Core.LastError, L"");
  }

  void StartAllowing(const std::vector<AppEntry>& apps) {
    Config config;
    config.apps = apps;
    world.PutConfig(config);
    ASSERT_TRUE(world.Start());
  }
};

TEST_F(Identity, WhatIsLearntOnFirstSightIsSaved) {
  StartAllowing({Allowed(kTool), Allowed(kBrowser)});
  for (const wchar_t* suffix : {L"", L".lastgood"}) {
    const Config saved = world.ConfigOnDisk(std::wstring(kConfigFile) + suffix);
    EXPECT_EQ(saved.apps[0].sha256, kLearnt);
    EXPECT_EQ(saved.apps[1].signer, kPublisher);
  }
}

// Compiling says what it learnt only once, while the engine may refuse the filters.
TEST_F(Identity, WhatAFailedApplyLearntIsSavedByTheNext) {
  world.machine().faults.FailOnce("CommitTransaction", platform::kTransactionTimeout);
  StartAllowing({Allowed(kTool)});
  EXPECT_TRUE(world.ConfigOnDisk().apps[0].sha256.empty());
  Reapply();
  EXPECT_EQ(world.ConfigOnDisk().apps[0].sha256, kLearnt);
}

TEST_F(Identity, ANewVersionOfTheSameSignerPasses) {
  StartAllowing({Allowed(kBrowser)});
  world.Signed(kBrowser, "browser, second version", kPublisher);
  Reapply();
  EXPECT_TRUE(world.Passes(Out(kBrowser, L"203.0.113.5", 443)));
}

TEST_F(Identity, AWarningThatStandsIsLoggedOnce) {
  AppEntry app = Allowed(kTool);
  app.sha256 = {HashText("another content")};
  StartAllowing({app});
  Reapply();
  Reapply();
  const std::wstring log = world.Log();
  const std::size_t first = log.find(L"Kept blocked");
  ASSERT_NE(first, std::wstring::npos);
  EXPECT_EQ(log.find(L"Kept blocked", first + 1), std::wstring::npos);
}

}  // namespace
}  // namespace kestrelon::test

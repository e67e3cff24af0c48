// Programs are held to what was recorded for them, from the file to the verdict.
#include "base/text.h"
#include "core/config_change.h"
#include "filtering/compile_apps.h"
#include "platform/codes.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

class Identity : public Scenario {
 protected:
  bool ToolPasses(const std::wstring& path) { return world.Passes(Out(path, L"203.0.113.5", 443)); }

  // What the loop does when a file has changed.
  void Reapply() {
    GuardLock lock(ConfigGuard);
    ReApply(L"files changed");
    EXPECT_EQ(Core.LastError, L"");
  }

  void StartAllowing(const AppEntry& app) {
    Config config;
    config.apps = {app};
    world.PutConfig(config);
    ASSERT_TRUE(world.Start());
  }
};

TEST_F(Identity, AnUnsignedProgramIsLearntOnFirstSightAndSaved) {
  StartAllowing(Allowed(kTool));
  EXPECT_TRUE(ToolPasses(kTool));
  const std::vector<std::wstring> learnt = {HashText("tool, first version")};
  EXPECT_EQ(world.ConfigOnDisk().apps[0].sha256, learnt);
  EXPECT_EQ(world.ConfigOnDisk(std::wstring(kConfigFile) + L".lastgood").apps[0].sha256, learnt);
}

// Compiling says what it learnt only once, while the engine may refuse the filters.
TEST_F(Identity, WhatAFailedApplyLearntIsSavedByTheNext) {
  world.machine().faults.FailOnce("CommitTransaction", platform::kTransactionTimeout);
  StartAllowing(Allowed(kTool));
  EXPECT_TRUE(world.ConfigOnDisk().apps[0].sha256.empty());
  Reapply();
  const std::vector<std::wstring> learnt = {HashText("tool, first version")};
  EXPECT_EQ(world.ConfigOnDisk().apps[0].sha256, learnt);
}

TEST_F(Identity, AnotherContentIsKeptBlockedUntilTheFirstComesBack) {
  StartAllowing(Allowed(kTool));
  world.machine().files.Write(kTool, "replaced behind the rule");
  Reapply();
  EXPECT_FALSE(ToolPasses(kTool));
  EXPECT_TRUE(world.Logged(
      L"Warning: Kept blocked: C:\\Tools\\tool.exe has changed since it was allowed (unsigned "
      L"program)"));
  {
    GuardLock lock(ConfigGuard);
    EXPECT_EQ(KeptBlockedPaths(), std::vector<std::wstring>{kTool});
  }
  world.Restart();
  ASSERT_TRUE(world.Start());
  EXPECT_FALSE(ToolPasses(kTool)) << "the verdict survives a restart";

  world.machine().files.Write(kTool, "tool, first version");
  Reapply();
  EXPECT_TRUE(ToolPasses(kTool));
}

TEST_F(Identity, ASignedProgramIsHeldToItsSigner) {
  StartAllowing(Allowed(kBrowser));
  EXPECT_TRUE(ToolPasses(kBrowser));
  EXPECT_EQ(world.ConfigOnDisk().apps[0].signer, kPublisher);
  EXPECT_TRUE(world.ConfigOnDisk().apps[0].sha256.empty());

  world.Signed(kBrowser, "browser, second version", kPublisher);
  Reapply();
  EXPECT_TRUE(ToolPasses(kBrowser)) << "a new version of the same signer";

  world.Signed(kBrowser, "something else", L"Somebody Else");
  Reapply();
  EXPECT_FALSE(ToolPasses(kBrowser));
  EXPECT_TRUE(world.Logged(
      L"Warning: Kept blocked: C:\\Tools\\browser.exe is no longer signed by \"Example "
      L"Publisher\" (signed by \"Somebody Else\")"));

  world.machine().files.Remove(kBrowser);
  world.Program(kBrowser, "unsigned now");
  Reapply();
  EXPECT_FALSE(ToolPasses(kBrowser));
  EXPECT_TRUE(world.Logged(
      L"Warning: Kept blocked: C:\\Tools\\browser.exe is no longer signed by \"Example "
      L"Publisher\" (unsigned)"));
}

TEST_F(Identity, ATamperedSignedFileIsHeldBack) {
  StartAllowing(Allowed(kBrowser));
  world.machine().files.Write(kBrowser, "browser, first version, patched");
  Reapply();
  EXPECT_FALSE(ToolPasses(kBrowser));
  EXPECT_FALSE(world.Passes(Loopback(Out(kBrowser, L"127.0.0.1", 80))));
}

TEST_F(Identity, AWarningThatStandsIsLoggedOnce) {
  AppEntry app = Allowed(kTool);
  app.sha256 = {HashText("another content")};
  StartAllowing(app);
  Reapply();
  Reapply();
  const std::wstring log = world.Log();
  const std::size_t first = log.find(L"Kept blocked");
  ASSERT_NE(first, std::wstring::npos);
  EXPECT_EQ(log.find(L"Kept blocked", first + 1), std::wstring::npos);
}

TEST_F(Identity, AnExpiredPermissionIsNoPermission) {
  AppEntry app = Allowed(kTool);
  app.expires = world.machine().clock.SystemTime() + 10'000'000;
  StartAllowing(app);
  EXPECT_TRUE(ToolPasses(kTool));
  world.machine().clock.Advance(1000);
  Reapply();
  EXPECT_FALSE(ToolPasses(kTool));
}

}  // namespace
}  // namespace kestrelon::test

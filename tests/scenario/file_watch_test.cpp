// A program overwritten while the service runs, from the notification to the verdict.
#include <tuple>

#include "core/config_change.h"
#include "core/core_loop.h"
#include "core/core_state.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

constexpr const char* kFirst = "tool, first version";

class FileWatchScenario : public Scenario {
 protected:
  // Running, with the directory watched and nothing left to do.
  void StartAllowing(const std::vector<AppEntry>& apps) {
    ASSERT_TRUE(world.StartWith(ConfigOf(apps)));
    ASSERT_TRUE(world.machine().watches.WaitForOpen(1));
    LoopPass();
    (void)Woken();
  }

  // What the watch threads do about changes so far is done.
  void Settle() { world.machine().watches.WaitForWatchers(); }

  void Overwrite(const std::wstring& path, const std::string& content) {
    world.machine().files.Write(path, content);
    Settle();
  }

  bool Woken() { return platform::WaitForAny({&Core.WakeEvent}, 0) == 0; }
};

TEST_F(FileWatchScenario, AnOverwrittenProgramIsBlockedAtOnceBeforeAnyVerification) {
  StartAllowing({Allowed(kTool), Allowed(kOther)});
  world.machine().faults.FailAlways("Sha256::Begin", platform::kAccessDenied);
  Overwrite(kTool, "replaced behind the rule");
  EXPECT_FALSE(world.Reaches(kTool));
  EXPECT_FALSE(world.Passes(Loopback(In(kTool, L"::1", 80))));
  EXPECT_TRUE(world.Reaches(kOther));
  EXPECT_FALSE(world.machine().faults.fired()) << "something was verified";
  EXPECT_EQ(Core.ChangedFilesBlocked, 1U);
  EXPECT_TRUE(
      world.Logged(L"File changed: C:\\Tools\\tool.exe - blocked until it is verified again"));
  EXPECT_TRUE(Woken());
}

TEST_F(FileWatchScenario, TheNextPassHoldsTheProgramBackOrPermitsItAgain) {
  StartAllowing({Allowed(kTool)});
  const struct {
    const char* content;
    bool passes;
  } cases[] = {{"replaced behind the rule", false},
               {"replaced once more", false},
               {kFirst, true},
               {kFirst, true}};
  std::uint32_t blocked = 0;
  for (const auto& c : cases) {
    const std::uint32_t applies = Core.ApplyCount;
    const bool permitted = world.Reaches(kTool);
    Overwrite(kTool, c.content);
    EXPECT_FALSE(world.Reaches(kTool)) << c.content;
    blocked += permitted ? 1U : 0U;  // held back already, it is no pinned file
    EXPECT_EQ(Core.ChangedFilesBlocked, blocked);
    EXPECT_TRUE(Woken());
    LoopPass();
    EXPECT_EQ(world.Reaches(kTool), c.passes) << c.content;
    EXPECT_FALSE(Core.ChangedFilePending);
    LoopPass();
    EXPECT_LE(Core.ApplyCount, applies + 1) << "the block does not read as tampering";
  }
  const std::wstring log = world.Log();
  const std::size_t told = log.find(L"Warning: Kept blocked: C:\\Tools\\tool.exe has changed");
  ASSERT_NE(told, log.npos);
  EXPECT_EQ(log.find(L"Kept blocked", told + 20), log.npos) << "a warning that stands is told once";
  EXPECT_EQ(Core.TamperRestores, 0U);
}

// A signed program is verified first: updates of the same signer must not be cut off.
TEST_F(FileWatchScenario, ASignedProgramIsLeftToTheNextPassWhichIsWoken) {
  StartAllowing({Allowed(kBrowser)});
  Overwrite(kBrowser, "browser, first version, patched");
  EXPECT_TRUE(world.Reaches(kBrowser));
  EXPECT_EQ(Core.ChangedFilesBlocked, 0U);
  EXPECT_FALSE(Core.ChangedFilePending);
  EXPECT_TRUE(Woken());
  LoopPass();
  EXPECT_FALSE(world.Reaches(kBrowser));
  world.Signed(kBrowser, "browser, second version", kPublisher);
  Settle();
  LoopPass();
  EXPECT_TRUE(world.Reaches(kBrowser)) << "a new version of the same signer";
}

TEST_F(FileWatchScenario, ADirectoryThatWentAndCameBackIsWatchedAgain) {
  StartAllowing({Allowed(kTool)});
  world.machine().files.Remove(L"C:\\Tools");
  Settle();
  EXPECT_TRUE(Core.WatchRebuildPending);
  EXPECT_EQ(world.machine().watches.open_watches(), 0U);
  world.Program(kTool, kFirst);
  LoopPass();
  ASSERT_TRUE(world.machine().watches.WaitForOpen(1));
  EXPECT_TRUE(world.Reaches(kTool));
  Overwrite(kTool, "replaced behind the rule");
  EXPECT_FALSE(world.Reaches(kTool));
}

TEST_F(FileWatchScenario, WithProtectionOffAndAfterAStopNothingIsWatched) {
  StartAllowing({Allowed(kTool)});
  Config config = world.ConfigOnDisk();
  config.enabled = false;
  (void)world.Set(config);
  EXPECT_EQ(world.machine().watches.open_watches(), 0U);
  config.enabled = true;
  (void)world.Set(config);
  ASSERT_TRUE(world.machine().watches.WaitForOpen(1));
  world.Stop();
  EXPECT_EQ(world.machine().watches.open_watches(), 0U);
}

// Between the look at a file and the swap of filters its permission is as old as the look, and a
// block that is installed in between goes with the filters that the swap replaces.
class ReplacedWhileApplied : public FileWatchScenario,
                             public testing::WithParamInterface<std::tuple<std::string, bool>> {};

TEST_P(ReplacedWhileApplied, AProgramIsBlockedByTheEndOfTheApplication) {
  const auto& [call, at_start] = GetParam();
  AppEntry app = Allowed(kTool);
  app.sha256 = {HashText(kFirst)};
  if (!at_start) StartAllowing({app});
  world.machine().faults.RunBefore(call, [this, &call = call] {
    world.machine().files.Write(kTool, "replaced meanwhile");
    // Nobody holds the engine yet, so the block is in place when the swap comes.
    if (call == "ListAdapters") Settle();
  });
  if (at_start) {
    ASSERT_TRUE(world.StartWith(ConfigOf({app})));
  } else {
    EXPECT_TRUE(world.Set(world.ConfigOnDisk())["ok"].boolean());
    EXPECT_TRUE(Woken());
  }
  EXPECT_FALSE(world.Reaches(kTool));
  LoopPass();
  EXPECT_FALSE(world.Reaches(kTool));
}

INSTANTIATE_TEST_SUITE_P(BetweenLookAndSwap, ReplacedWhileApplied,
                         testing::Combine(testing::Values("ListAdapters", "BeginTransaction",
                                                          "CommitTransaction"),
                                          testing::Bool()));

}  // namespace
}  // namespace kestrelon::test

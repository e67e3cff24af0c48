// An application that moves to a new directory with each version keeps its permission, and nobody
// else gets it.
#include "identity/follow_updates.h"

#include <thread>

#include "base/text.h"
#include "identity/follow_queue.h"
#include "platform/codes.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

constexpr const wchar_t* kOld = L"C:\\Apps\\Tool-1.2\\tool.exe";
constexpr const wchar_t* kNew = L"C:\\Apps\\Tool-1.3\\tool.exe";
constexpr const wchar_t* kNext = L"C:\\Apps\\Tool-1.4\\tool.exe";

AppEntry Published(const std::wstring& path, const wchar_t* signer = kPublisher) {
  AppEntry app = Allowed(path);
  app.signer = signer;
  return app;
}

class FollowUpdates : public Scenario {
 protected:
  FollowUpdates() {
    world.Signed(kOld, "tool 1.2", kPublisher);
    world.Signed(kNew, "tool 1.3", kPublisher);
  }

  void Start(const std::vector<AppEntry>& apps) {
    ASSERT_TRUE(world.StartWith(ConfigOf(apps)));
    before = Live();  // with what was learnt
  }

  Config Live() {
    GuardLock lock(ConfigGuard);
    return Core.CurrentConfig;
  }

  // That the program is as blocked and the configuration as it was.
  void ExpectNotFollowed(const std::wstring& path = kNew) {
    EXPECT_FALSE(world.Reaches(path));
    EXPECT_EQ(Live(), before);
    EXPECT_EQ(world.ConfigOnDisk(), before);
    EXPECT_FALSE(world.Logged(L"Update detected"));
  }

  // Gives the file a version resource.
  void SetProduct(const std::wstring& path, const std::wstring& product) {
    auto& files = world.machine().files;
    files.SetVersion(path, L"\\VarFileInfo\\Translation",
                     std::vector<std::uint8_t>{0x09, 0x04, 0xb0, 0x04});
    files.SetVersion(path, L"\\StringFileInfo\\040904b0\\ProductName", product);
    files.SetVersion(path, L"\\StringFileInfo\\040904b0\\OriginalFilename", L"tool.exe");
  }

  Config before;
};

TEST_F(FollowUpdates, BothVersionsAreListedWhileTheOldFileIsThere) {
  AppEntry app = Published(L"%SystemDrive%\\Apps\\Tool-1.2\\tool.exe");
  app.inbound = true;
  app.added = 77;
  Start({app});
  EXPECT_FALSE(world.Reaches(kNew));
  FollowUpdate(kNew);
  EXPECT_TRUE(world.Reaches(kOld));
  EXPECT_TRUE(world.Reaches(kNew));
  app.path = kNew;
  app.added = world.machine().clock.SystemTime();
  before.apps.push_back(app);
  EXPECT_EQ(Live(), before);
  EXPECT_EQ(world.ConfigOnDisk(), before);
  EXPECT_TRUE(
      world.Logged(L"Update detected: %SystemDrive%\\Apps\\Tool-1.2\\tool.exe -> "
                   L"C:\\Apps\\Tool-1.3\\tool.exe (publisher \"Example Publisher\")\r\n"));
}

TEST_F(FollowUpdates, TheEntryMovesWhenTheOldFileIsGone) {
  AppEntry app = Published(kOld);
  app.added = 77;
  Start({app});
  auto& files = world.machine().files;
  files.Remove(kOld);
  files.MakeDirectories(kOld);  // a directory is no file
  FollowUpdate(kNew);
  EXPECT_TRUE(world.Reaches(kNew));
  EXPECT_FALSE(world.Reaches(kOld));
  app.path = kNew;
  EXPECT_EQ(Live().apps, std::vector<AppEntry>{app});
  EXPECT_EQ(world.ConfigOnDisk(), Live());
}

TEST_F(FollowUpdates, OnlyPublisherAndProductTogetherAreFollowed) {
  SetProduct(kOld, L"Contoso Tool");
  Start({Published(kOld)});
  EXPECT_EQ(before.apps[0].product, L"contoso tool|tool.exe") << "learnt from the listed file";
  const struct {
    const wchar_t* signer;
    const wchar_t* product;
    const wchar_t* reason;
  } cases[] = {
      {L"Somebody Else", L"CONTOSO TOOL",
       L"publisher \"Somebody Else\" does not match \"Example Publisher\"\r\n"},
      {kPublisher, L"Contoso Shell",
       L"product \"contoso shell|tool.exe\" does not match \"contoso tool|tool.exe\"\r\n"},
  };
  for (const auto& c : cases) {
    world.Signed(kNew, "tool 1.3, for " + Utf8FromWide(c.reason), c.signer);
    SetProduct(kNew, c.product);
    FollowUpdate(kNew);
    EXPECT_TRUE(world.Logged(std::wstring(L"Not following update ") + kNew + L": " + c.reason));
    ExpectNotFollowed();
  }
  SetProduct(kNew, L"CONTOSO TOOL");
  FollowUpdate(kNew);
  EXPECT_TRUE(world.Reaches(kNew));
}

TEST_F(FollowUpdates, TheFirstEntryOfTheFamilyThatMayMoveDecides) {
  AppEntry stays = Published(L"C:\\Apps\\Tool-1.0\\tool.exe");
  stays.trust_updates = false;
  const AppEntry unsigned_one = Allowed(L"C:\\Apps\\Tool-1.1\\tool.exe");
  Start({stays, unsigned_one, Published(L"C:\\Apps\\Tool-0.9\\tool.exe", L"Somebody Else"),
         Published(kOld)});
  FollowUpdate(kNew);
  EXPECT_TRUE(world.Logged(L": publisher \"Example Publisher\" does not match \"Somebody Else\""));
  ExpectNotFollowed();

  Config config = before;
  config.apps.erase(config.apps.begin() + 2);
  EXPECT_TRUE(world.Set(config).Get("ok").boolean());
  FollowUpdate(kNew);
  EXPECT_TRUE(world.Reaches(kNew));
}

TEST_F(FollowUpdates, OnlyTheNextPlaceOfAListedApplicationIsLookedAt) {
  const wchar_t* const deeper = L"C:\\Apps\\Tool-1.3\\beta\\tool.exe";
  world.Signed(deeper, "tool 1.3", kPublisher);
  world.Signed(kNext, "tool 1.4", kPublisher);
  world.machine().files.SetLink(L"C:\\Apps\\current", L"C:\\Apps\\Tool-1.4");
  const wchar_t* const served = L"C:\\Apps\\Tool-1.5\\tool.exe";
  world.Signed(served, "tool 1.5", kPublisher);
  world.machine().services.Add(
      {.name = L"ToolSvc", .display_name = L"Tool", .binary_path = served, .sid_type = 1});
  // One that is listed already, though by another publisher, one as a service, and a pattern that
  // fits the kernel.
  Start({Published(kOld), Published(L"%SystemDrive%\\Apps\\CURRENT\\tool.exe", L"Somebody Else"),
         Published(L"service:ToolSvc"), Published(L"Sys???")});
  const std::wstring log = world.Log();
  for (const wchar_t* path : {deeper, kNext, served, L"System", L"system"}) {
    FollowUpdate(path);
    ExpectNotFollowed(path);
  }
  EXPECT_EQ(world.Log(), log);

  before.enabled = false;
  EXPECT_TRUE(world.Set(before).Get("ok").boolean());
  FollowUpdate(kNew);
  EXPECT_EQ(Live(), before);
}

TEST_F(FollowUpdates, ANewFileUnderAPatternNeedsFiltersAndNoEntry) {
  world.machine().files.Remove(kNew);
  Start({Published(kOld), Published(L"C:\\Apps\\*\\tool.exe")});
  world.Signed(kNew, "tool 1.3", kPublisher);
  EXPECT_FALSE(world.Reaches(kNew));
  FollowUpdate(kNew);
  EXPECT_TRUE(world.Reaches(kNew));
  EXPECT_EQ(Live(), before);
  EXPECT_TRUE(world.Logged(
      L"C:\\Apps\\Tool-1.3\\tool.exe matches C:\\Apps\\*\\tool.exe - re-applying\r\n"));
}

TEST_F(FollowUpdates, AnEntryThatWouldHaveMovedStaysWhereItWasWhenTheApplyFails) {
  Start({Published(kOld)});
  world.machine().files.Remove(kOld);
  world.machine().faults.FailAlways("CommitTransaction", platform::kTransactionTimeout);
  FollowUpdate(kNew);
  ExpectNotFollowed();
  const std::wstring failed = L" failed: FwpmTransactionCommit0: 0x80320012";
  EXPECT_TRUE(world.Logged(L"Following update C:\\Apps\\Tool-1.3\\tool.exe" + failed));
  EXPECT_TRUE(world.Logged(L"Re-apply (revert)" + failed));
}

TEST_F(FollowUpdates, AFailureOfAnyCallFollowsWhollyOrNotAtAll) {
  Start({Published(kOld)});
  auto& faults = world.machine().faults;
  for (std::uint64_t n = 1; n < 1000; ++n) {
    SCOPED_TRACE(n);
    EXPECT_TRUE(world.Set(before).Get("ok").boolean());
    world.Signed(kNew, "tool 1.3, build " + std::to_string(n), kPublisher);
    faults.FailNth(n, platform::kAccessDenied);
    FollowUpdate(kNew);
    const bool struck = faults.fired();
    faults.Clear();
    const bool followed = Live().apps.back().path == kNew;
    EXPECT_TRUE(followed || !world.Reaches(kNew));
    EXPECT_TRUE(followed || Live() == before);
    if (struck) continue;
    EXPECT_TRUE(world.Reaches(kNew));
    return;
  }
  ADD_FAILURE() << "never passed untouched";
}

// Between the checks and the filters the file may be exchanged.
TEST_F(FollowUpdates, AFileExchangedAfterTheChecksIsHeldBack) {
  SetProduct(kOld, L"Contoso Tool");
  SetProduct(kNew, L"Contoso Tool");
  Start({Published(kOld)});
  auto& machine = world.machine();
  machine.faults.RunBefore("LoadVersionBlock", [&] { machine.files.Write(kNew, "exchanged"); });
  FollowUpdate(kNew);
  EXPECT_FALSE(world.Reaches(kNew));
  EXPECT_TRUE(world.Logged(
      L"Kept blocked: C:\\Apps\\Tool-1.3\\tool.exe is no longer signed by \"Example Publisher\""));
  EXPECT_TRUE(world.Reaches(kOld));
}

TEST_F(FollowUpdates, TheWorkerLooksOnceAtAProgramThatKnocksManyTimes) {
  world.machine().files.Sign(kNew, L"Somebody Else");
  world.Signed(kNext, "tool 1.4", kPublisher);
  Start({Published(kOld)});
  for (int i = 0; i < 10; ++i) QueueFollow(kNew);
  QueueFollow(kNext);  // in the order of the queue
  while (!world.Logged(L"Update detected: ")) std::this_thread::yield();
  const std::wstring log = world.Log();
  const std::wstring line = std::wstring(L"Not following update ") + kNew;
  EXPECT_NE(log.find(line), log.npos);
  EXPECT_EQ(log.find(line), log.rfind(line));
  EXPECT_FALSE(world.Reaches(kNew));
}

TEST_F(FollowUpdates, EntriesOfVersionsThatAreGoneArePruned) {
  Start({});
  world.machine().files.SetLink(L"C:\\Apps\\current", L"C:\\Apps\\Tool-1.3");
  const AppEntry gone = Published(L"C:\\Apps\\Tool-1.0\\tool.exe");
  const AppEntry also_gone = Published(L"%SystemDrive%\\Apps\\Tool-1.1\\tool.exe");
  const AppEntry there = Published(kNew);
  const auto fixed = [](AppEntry app) {
    app.trust_updates = false;
    return app;
  };
  AppEntry blocking = there;
  blocking.allow = false;
  const struct {
    const char* claim;
    std::vector<AppEntry> apps;
    std::size_t removed;  // so many of the first
  } cases[] = {
      {"old version gone", {gone, there}, 1},
      {"two old versions gone", {gone, also_gone, there}, 2},
      {"successor behind a link", {gone, Published(L"C:\\Apps\\current\\tool.exe")}, 1},
      {"successor that may not move", {gone, fixed(there)}, 1},
      {"old version there", {Published(kOld), there}, 0},
      {"no successor", {gone}, 0},
      {"successor gone too", {gone, also_gone}, 0},
      {"old version that may not move", {fixed(gone), there}, 0},
      {"no publisher recorded", {Allowed(gone.path), there}, 0},
      {"the other blocks", {gone, blocking}, 0},
      {"another publisher", {gone, Published(kNew, L"Somebody Else")}, 0},
  };
  GuardLock lock(ConfigGuard);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.claim);
    Core.CurrentConfig.apps = c.apps;
    EXPECT_EQ(PruneOldVersions(), c.removed != 0);
    const auto left = c.apps.begin() + static_cast<std::ptrdiff_t>(c.removed);
    EXPECT_EQ(Core.CurrentConfig.apps, std::vector<AppEntry>(left, c.apps.end()));
  }
  EXPECT_TRUE(
      world.Logged(L"Removing rule of old version (file gone): "
                   L"%SystemDrive%\\Apps\\Tool-1.1\\tool.exe\r\n"));
}

}  // namespace
}  // namespace kestrelon::test

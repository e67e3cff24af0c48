// An application that moves to a new directory with each version keeps its permission, and nobody
// else gets it.
#include "identity/follow_updates.h"

#include <chrono>
#include <functional>
#include <thread>

#include "base/text.h"
#include "identity/follow_queue.h"
#include "platform/codes.h"
#include "tests/scenario/client.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

constexpr const wchar_t* kOld = L"C:\\Apps\\Tool-1.2\\tool.exe";
constexpr const wchar_t* kNew = L"C:\\Apps\\Tool-1.3\\tool.exe";

AppEntry Published(const std::wstring& path, const wchar_t* signer = kPublisher) {
  AppEntry app = Allowed(path);
  app.signer = signer;
  return app;
}

std::size_t Count(const std::wstring& text, const std::wstring& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::wstring::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

class FollowUpdates : public Scenario {
 protected:
  FollowUpdates() {
    world.Signed(kOld, "tool 1.2", kPublisher);
    world.Signed(kNew, "tool 1.3", kPublisher);
  }

  void Start(const std::vector<AppEntry>& apps) {
    Config config;
    config.presets_version = 9;
    config.apps = apps;
    world.PutConfig(config);
    ASSERT_TRUE(world.Start());
    before = Live();  // with what was learnt
  }

  Config Live() {
    GuardLock lock(ConfigGuard);
    return Core.CurrentConfig;
  }

  bool Reaches(const std::wstring& path) { return world.Passes(Out(path, L"203.0.113.5", 443)); }

  // That the program is as blocked and the configuration as it was.
  void ExpectNotFollowed(const std::wstring& path = kNew) {
    EXPECT_FALSE(Reaches(path));
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

  // Waits for what the worker does.
  bool Eventually(const std::function<bool()>& holds) {
    for (int i = 0; i < 10000 && !holds(); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return holds();
  }

  Config before;
};

TEST_F(FollowUpdates, BothVersionsAreListedWhileTheOldFileIsThere) {
  AppEntry app = Published(kOld);
  app.inbound = true;
  app.added = 77;
  Start({app});
  EXPECT_FALSE(Reaches(kNew));
  FollowUpdate(kNew);
  EXPECT_TRUE(Reaches(kOld));
  EXPECT_TRUE(Reaches(kNew));
  Config after = before;
  app.path = kNew;
  app.added = world.machine().clock.SystemTime();
  after.apps.push_back(app);
  EXPECT_EQ(Live(), after);
  EXPECT_EQ(world.ConfigOnDisk(), after);
  EXPECT_EQ(world.ConfigOnDisk(std::wstring(kConfigFile) + L".lastgood"), after);
  EXPECT_TRUE(
      world.Logged(L"Update detected: C:\\Apps\\Tool-1.2\\tool.exe -> "
                   L"C:\\Apps\\Tool-1.3\\tool.exe (publisher \"Example Publisher\")"));
}

TEST_F(FollowUpdates, TheEntryMovesWhenTheOldFileIsGone) {
  AppEntry app = Published(kOld);
  app.added = 77;
  Start({app});
  auto& files = world.machine().files;
  files.Remove(kOld);
  files.MakeDirectories(kOld);  // a directory is no file
  FollowUpdate(kNew);
  EXPECT_TRUE(Reaches(kNew));
  EXPECT_FALSE(Reaches(kOld));
  app.path = kNew;
  EXPECT_EQ(Live().apps, std::vector<AppEntry>{app});
  EXPECT_EQ(world.ConfigOnDisk(), Live());
}

TEST_F(FollowUpdates, AnEntryWithAVariableIsFollowedToo) {
  const std::wstring old_path = L"C:\\Program Files\\Tool-1.2\\tool.exe";
  const std::wstring new_path = L"C:\\Program Files\\Tool-1.3\\tool.exe";
  world.Signed(old_path, "tool 1.2", kPublisher);
  world.Signed(new_path, "tool 1.3", kPublisher);
  Start({Published(L"%ProgramFiles%\\Tool-1.2\\tool.exe")});
  FollowUpdate(new_path);
  EXPECT_TRUE(Reaches(old_path));
  EXPECT_TRUE(Reaches(new_path));
  EXPECT_EQ(Live().apps.size(), 2U) << "the file behind the variable is there";
  EXPECT_TRUE(world.Logged(L"Update detected: %ProgramFiles%\\Tool-1.2\\tool.exe -> "));
}

TEST_F(FollowUpdates, OnlyPublisherAndProductTogetherAreFollowed) {
  SetProduct(kOld, L"Contoso Tool");
  SetProduct(kNew, L"CONTOSO TOOL");
  Start({Published(kOld)});
  EXPECT_EQ(before.apps[0].product, L"contoso tool|tool.exe") << "learnt from the listed file";

  const std::wstring refused = std::wstring(L"Not following update ") + kNew + L": ";
  world.Signed(kNew, "tool 1.3, of another", L"Somebody Else");
  FollowUpdate(kNew);
  EXPECT_TRUE(world.Logged(
      refused + L"publisher \"Somebody Else\" does not match \"Example Publisher\"\r\n"));
  ExpectNotFollowed();

  world.machine().files.Write(kNew, "not what was signed");
  FollowUpdate(kNew);
  EXPECT_TRUE(world.Logged(refused + L"publisher \"\" does not match \"Example Publisher\"\r\n"));
  ExpectNotFollowed();

  world.Signed(kNew, "shell 1.3", kPublisher);
  SetProduct(kNew, L"Contoso Shell");
  FollowUpdate(kNew);
  EXPECT_TRUE(world.Logged(refused + L"product \"contoso shell|tool.exe\" does not match "
                                     L"\"contoso tool|tool.exe\"\r\n"));
  ExpectNotFollowed();

  SetProduct(kNew, L"CONTOSO TOOL");
  FollowUpdate(kNew);
  EXPECT_TRUE(Reaches(kNew));
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
  EXPECT_TRUE(Reaches(kNew));
}

TEST_F(FollowUpdates, OnlyTheNextPlaceOfAListedApplicationIsLookedAt) {
  const wchar_t* const deeper = L"C:\\Apps\\Tool-1.3\\beta\\tool.exe";
  const wchar_t* const other_name = L"C:\\Apps\\Tool-1.3\\tool2.exe";
  world.Signed(deeper, "tool 1.3", kPublisher);
  world.Signed(other_name, "tool 1.3", kPublisher);
  // A pattern that would match the kernel's name.
  Start({Published(kOld), Published(L"Sys???")});
  const std::wstring log = world.Log();
  for (const wchar_t* path : {deeper, other_name, L"System", L"system"}) {
    FollowUpdate(path);
    ExpectNotFollowed(path);
  }
  EXPECT_EQ(world.Log(), log);
}

TEST_F(FollowUpdates, AListedProgramIsBlockedForAnotherReason) {
  world.machine().files.SetLink(L"C:\\Apps\\current", L"C:\\Apps\\Tool-1.3");
  AppEntry by_link = Published(L"%SystemDrive%\\Apps\\CURRENT\\tool.exe", L"Somebody Else");
  Start({Published(kOld), by_link});
  FollowUpdate(kNew);
  ExpectNotFollowed();
}

TEST_F(FollowUpdates, NothingIsFollowedWhileProtectionIsOff) {
  Start({Published(kOld)});
  before.enabled = false;
  EXPECT_TRUE(world.Set(before).Get("ok").boolean());
  FollowUpdate(kNew);
  EXPECT_EQ(Live(), before);
}

TEST_F(FollowUpdates, ANewFileUnderAPatternNeedsFiltersAndNoEntry) {
  world.machine().files.Remove(kNew);
  Start({Published(kOld), Published(L"C:\\Apps\\*\\tool.exe")});
  world.Signed(kNew, "tool 1.3", kPublisher);
  EXPECT_FALSE(Reaches(kNew));
  FollowUpdate(kNew);
  EXPECT_TRUE(Reaches(kNew));
  EXPECT_EQ(Live(), before);
  EXPECT_TRUE(world.Logged(
      L"C:\\Apps\\Tool-1.3\\tool.exe matches C:\\Apps\\*\\tool.exe - re-applying\r\n"));
}

TEST_F(FollowUpdates, AFailedApplyLeavesEverythingAsItWas) {
  Start({Published(kOld)});
  world.machine().faults.FailOnce("CommitTransaction", platform::kTransactionTimeout);
  FollowUpdate(kNew);
  EXPECT_TRUE(
      world.Logged(L"Following update C:\\Apps\\Tool-1.3\\tool.exe failed: "
                   L"FwpmTransactionCommit0: 0x80320012"));
  ExpectNotFollowed();
  EXPECT_TRUE(Reaches(kOld));
  EXPECT_FALSE(world.Logged(L"Re-apply"));

  // The entry that would have moved stays where it was, also when the way back is closed.
  world.machine().files.Remove(kOld);
  world.machine().faults.FailAlways("CommitTransaction", platform::kTransactionTimeout);
  FollowUpdate(kNew);
  ExpectNotFollowed();
  EXPECT_TRUE(world.Logged(L"Re-apply (revert) failed: FwpmTransactionCommit0: 0x80320012"));
}

// Between the checks and the filters the file may be exchanged.
TEST_F(FollowUpdates, AFileExchangedAfterTheChecksIsHeldBack) {
  SetProduct(kOld, L"Contoso Tool");
  SetProduct(kNew, L"Contoso Tool");
  Start({Published(kOld)});
  auto& machine = world.machine();
  machine.faults.RunBefore("LoadVersionBlock", [&] { machine.files.Write(kNew, "exchanged"); });
  FollowUpdate(kNew);
  EXPECT_FALSE(Reaches(kNew));
  EXPECT_TRUE(world.Logged(
      L"Kept blocked: C:\\Apps\\Tool-1.3\\tool.exe is no longer signed by \"Example Publisher\""));
  EXPECT_TRUE(Reaches(kOld));
}

TEST_F(FollowUpdates, ClientsAreTold) {
  Start({Published(kOld)});
  Client client;
  client.Subscribe();
  FollowUpdate(kNew);
  EXPECT_EQ(client.NextEvent().Dump(false),
            R"({"type":"app_updated","old_path":"C:\\Apps\\Tool-1.2\\tool.exe",)"
            R"("new_path":"C:\\Apps\\Tool-1.3\\tool.exe","signer":"Example Publisher"})");
  EXPECT_EQ(client.NextEvent().Dump(false), R"({"type":"config_changed"})");
}

TEST_F(FollowUpdates, TheWorkerFollowsWhatIsQueued) {
  Start({Published(kOld)});
  QueueFollow(kNew);
  EXPECT_TRUE(Eventually([&] { return Reaches(kNew); }));
}

TEST_F(FollowUpdates, ABlockedProgramThatKnocksIsToldOfOnceIn30Seconds) {
  world.machine().files.Sign(kNew, L"Somebody Else");
  Start({Published(kOld)});
  const std::wstring line = std::wstring(L"Not following update ") + kNew;
  // Paths are handled in their order: behind this one, all before it are.
  const auto wait_for_all_before = [&](const std::wstring& path) {
    QueueFollow(path);
    return Eventually([&] { return world.Logged(L"Not following update " + path); });
  };
  for (int i = 0; i < 10; ++i) QueueFollow(kNew);
  EXPECT_TRUE(wait_for_all_before(L"C:\\Apps\\Tool-2.0\\tool.exe"));
  EXPECT_EQ(Count(world.Log(), line), 1U);
  world.machine().clock.Advance(29999);
  QueueFollow(kNew);
  EXPECT_TRUE(wait_for_all_before(L"C:\\Apps\\Tool-2.1\\tool.exe"));
  EXPECT_EQ(Count(world.Log(), line), 1U);
  world.machine().clock.Advance(1);
  QueueFollow(kNew);
  EXPECT_TRUE(Eventually([&] { return Count(world.Log(), line) == 2; }));
  ExpectNotFollowed();
}

// Entries of which pruning takes out the first ones, or none.
struct PruneCase {
  const char* name;
  std::vector<AppEntry> apps;
  std::size_t removed;
};

std::vector<PruneCase> PruneCases() {
  const std::wstring gone = L"C:\\Apps\\Tool-1.0\\tool.exe";
  const AppEntry gone_entry = Published(gone);
  const AppEntry there = Published(kNew);
  AppEntry untrusted = gone_entry;
  untrusted.trust_updates = false;
  AppEntry unsigned_one = gone_entry;
  unsigned_one.signer.clear();
  AppEntry blocking = there;
  blocking.allow = false;
  AppEntry by_variable = Published(L"%SystemDrive%\\Apps\\Tool-1.0\\tool.exe");
  AppEntry trusted_no_more = there;
  trusted_no_more.trust_updates = false;
  return {
      {"old version gone", {gone_entry, there}, 1},
      {"old path with a variable", {by_variable, there}, 1},
      {"two old versions gone", {gone_entry, Published(L"C:\\Apps\\Tool-1.1\\tool.exe"), there}, 2},
      {"a successor that stays where it is", {gone_entry, trusted_no_more}, 1},
      {"the same gone file twice", {gone_entry, gone_entry, there}, 2},
      {"old version there", {Published(kOld), there}, 0},
      {"no successor", {gone_entry}, 0},
      {"successor gone too", {gone_entry, Published(L"C:\\Apps\\Tool-1.1\\tool.exe")}, 0},
      {"entry stays where it is", {untrusted, there}, 0},
      {"no publisher recorded", {unsigned_one, there}, 0},
      {"the other blocks", {gone_entry, blocking}, 0},
      {"another publisher", {gone_entry, Published(kNew, L"Somebody Else")}, 0},
      {"another program", {gone_entry, Published(kBrowser)}, 0},
      {"a pattern", {Published(L"C:\\Apps\\Tool-1.0\\*.exe"), there}, 0},
      {"a service", {Published(L"service:C:\\Apps\\Tool-1.0\\tool.exe"), there}, 0},
  };
}

TEST_F(FollowUpdates, EntriesOfVersionsThatAreGoneArePruned) {
  Start({});
  for (const PruneCase& row : PruneCases()) {
    SCOPED_TRACE(row.name);
    const std::size_t lines = Count(world.Log(), L"Removing rule of old version (file gone): ");
    GuardLock lock(ConfigGuard);
    Core.CurrentConfig.apps = row.apps;
    EXPECT_EQ(PruneOldVersions(), row.removed != 0);
    const auto offset = static_cast<std::ptrdiff_t>(row.removed);
    EXPECT_EQ(Core.CurrentConfig.apps,
              std::vector<AppEntry>(row.apps.begin() + offset, row.apps.end()));
    EXPECT_EQ(Count(world.Log(), L"Removing rule of old version (file gone): "),
              lines + row.removed);
  }
  EXPECT_TRUE(
      world.Logged(L"Removing rule of old version (file gone): C:\\Apps\\Tool-1.0\\tool.exe\r\n"));
}

}  // namespace
}  // namespace kestrelon::test

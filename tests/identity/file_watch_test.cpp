#include "identity/file_watch.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <mutex>
#include <set>

#include "core/core_state.h"
#include "identity/file_identity.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

// What the hook was called with; read while the watch threads wait.
std::mutex seen_mutex;
std::vector<std::wstring> seen;
std::function<void(const std::wstring&)> on_seen;

void Hook(const std::wstring& directory) {
  const std::lock_guard lock(seen_mutex);
  seen.push_back(directory);
  if (on_seen) on_seen(directory);
}

void SetThreadStackBytes(std::size_t bytes) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, bytes), 0);
  ASSERT_EQ(pthread_setattr_default_np(&attributes), 0);
  pthread_attr_destroy(&attributes);
}

class FileWatch : public testing::Test {
 protected:
  FileWatch() {
    Core.DirectoryChangedHook = &Hook;
    for (const wchar_t* path : {L"C:\\A\\a.exe", L"C:\\A\\b.exe", L"C:\\B\\b.exe"}) {
      files_.Write(path, "first");
    }
  }

  void TearDown() override {
    SyncFileWatch({}, nullptr);
    EXPECT_EQ(watches_.open_watches(), 0u);
  }

  void Sync(const std::vector<std::wstring>& paths) { SyncFileWatch(paths, &event_); }

  // So many directories are watched by so many threads.
  void ExpectWatched(std::size_t directories, std::size_t threads) {
    EXPECT_TRUE(watches_.WaitForOpen(directories)) << watches_.open_watches();
    EXPECT_EQ(watches_.waiting_threads(), threads);
  }

  // The directories that the hook has seen since the last call, once all is taken up.
  std::vector<std::wstring> Seen() {
    watches_.WaitForWatchers();
    const std::lock_guard lock(seen_mutex);
    return std::exchange(seen, {});
  }

  bool Woken() { return platform::WaitForAny({&event_}, 0) == 0; }

  simulation::FileSystem& files_ = simulation::TheMachine().files;
  simulation::DirectoryWatches& watches_ = simulation::TheMachine().watches;
  simulation::Faults& faults_ = simulation::TheMachine().faults;
  platform::Event event_{platform::Event::Reset::kAutomatic};
};

TEST_F(FileWatch, TheParentsOfProgramsAreWatchedButNotTheSystem) {
  files_.Write(L"C:\\root.exe", "");
  files_.Write(L"C:\\Program Files\\App\\app.exe", "");
  files_.Write(L"C:\\Windows.old\\app.exe", "");
  Sync({L"C:\\A\\a.exe", L"c:\\a\\B.EXE", L"%ProgramFiles%\\App\\app.exe", L"C:\\root.exe",
        L"C:\\Windows.old\\app.exe", L"C:\\none\\app.exe", L"D:\\", L"bare.exe", L"", L"system",
        L"%SystemRoot%\\System32\\svchost.exe", L"c:\\WINDOWS\\explorer.exe"});
  ExpectWatched(5, 1);
  for (const wchar_t* path :
       {L"C:\\B\\new", L"C:\\Windows\\new", L"C:\\Windows\\System32\\new", L"C:\\A\\new",
        L"C:\\root.exe", L"C:\\Program Files\\App\\app.exe", L"C:\\Windows.old\\new", L"D:\\new"}) {
    files_.Write(path, "changed");
  }
  const std::vector<std::wstring> told = Seen();
  EXPECT_EQ(std::set<std::wstring>(told.begin(), told.end()),
            (std::set<std::wstring>{L"c:", L"c:\\a", L"c:\\program files\\app", L"c:\\windows.old",
                                    L"d:"}));
}

TEST_F(FileWatch, EachThreadWatchesSixtyThreeDirectories) {
  std::vector<std::wstring> paths;
  for (int i = 0; i < 64; ++i) {
    paths.push_back(L"C:\\Many\\" + std::to_wstring(i) + L"\\app.exe");
    files_.Write(paths.back(), "");
  }
  Sync(paths);
  ExpectWatched(64, 2);
  for (const std::wstring& path : paths) files_.Touch(path);
  EXPECT_EQ(Seen().size(), 64u);
  paths.pop_back();
  Sync(paths);
  ExpectWatched(63, 1);
  Sync({L"System"});
  EXPECT_EQ(watches_.open_watches(), 0u);
}

TEST_F(FileWatch, TheHookComesBeforeStaleIdentitiesAndTheEvent) {
  Sync({L"C:\\A\\a.exe"});
  ExpectWatched(1, 1);
  const FileIdentity known = IdentityFor(L"C:\\A\\a.exe");
  // While no content can be read, only an identity that is not stale is still known.
  const auto is_stale = [&] {
    faults_.FailAlways("ReadFileBytes", platform::kAccessDenied);
    const bool stale = IdentityFor(L"C:\\A\\a.exe") != known;
    faults_.Clear();
    return stale;
  };
  on_seen = [&](const std::wstring&) {
    EXPECT_FALSE(is_stale());
    EXPECT_FALSE(Woken());
  };
  files_.Touch(L"C:\\A\\b.exe");
  EXPECT_TRUE(Woken());
  EXPECT_TRUE(is_stale());
  EXPECT_FALSE(Core.WatchRebuildPending);
}

TEST_F(FileWatch, ThreadsAreRestartedOnlyForAnotherSetOrEvent) {
  Sync({L"C:\\A\\a.exe", L"C:\\B\\b.exe"});
  ExpectWatched(2, 1);
  Sync({L"C:\\B\\other.exe", L"C:\\A\\a.exe", L"C:\\A\\b.exe", L"System"});
  EXPECT_EQ(watches_.begun_watches(), 2u);
  platform::Event other(platform::Event::Reset::kAutomatic);
  SyncFileWatch({L"C:\\A\\a.exe", L"C:\\B\\b.exe"}, &other);
  ExpectWatched(2, 1);
  EXPECT_EQ(watches_.begun_watches(), 4u);
  files_.Touch(L"C:\\A\\b.exe");
  EXPECT_EQ(platform::WaitForAny({&other}, 0), 0);
  EXPECT_FALSE(Woken());
}

TEST_F(FileWatch, WhatCantBeWatchedFromTheStartIsLeftToThePeriodicCheck) {
  faults_.FailOnce("WatchDirectory", platform::kAccessDenied);
  Sync({L"C:\\A\\a.exe", L"C:\\B\\b.exe"});
  ExpectWatched(1, 1);
  EXPECT_FALSE(Core.WatchRebuildPending);
  files_.Touch(L"C:\\A\\a.exe");
  files_.Touch(L"C:\\B\\b.exe");
  EXPECT_EQ(Seen(), std::vector<std::wstring>{L"c:\\b"});
}

TEST_F(FileWatch, AThreadThatCantBeStartedIsTriedAgain) {
  SetThreadStackBytes(std::size_t{1} << 46);
  Sync({L"C:\\A\\a.exe"});
  EXPECT_TRUE(Core.WatchRebuildPending);
  SetThreadStackBytes(8 << 20);
  Sync({L"C:\\A\\a.exe"});
  EXPECT_FALSE(Core.WatchRebuildPending);
  ExpectWatched(1, 1);
}

// The wait tells the first of several signalled directories.
TEST_F(FileWatch, ADirectoryInWhichSomethingAlwaysHappensHidesNoOther) {
  bool other_seen = false;
  int left = 1000;
  on_seen = [&](const std::wstring& directory) {
    other_seen = other_seen || directory == L"c:\\b";
    if (left == 1000) files_.Touch(L"C:\\B\\b.exe");
    if (!other_seen && --left > 0) files_.Touch(L"C:\\A\\a.exe");
  };
  Sync({L"C:\\A\\a.exe", L"C:\\B\\b.exe"});
  ExpectWatched(2, 1);
  files_.Touch(L"C:\\A\\a.exe");
  (void)Seen();
  EXPECT_TRUE(other_seen);
  EXPECT_GT(left, 0);
}

}  // namespace
}  // namespace kestrelon

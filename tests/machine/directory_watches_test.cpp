// What the contract can't reach through the seam: directories that are removed, restarts, and tests
// that wait for threads at work on a signal.
#include "simulation/machine/directory_watches.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include "platform/security.h"
#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

constexpr const wchar_t* kDirectory = L"C:\\App";
constexpr const wchar_t* kFile = L"C:\\App\\app.exe";
constexpr std::uint32_t kNames = kNotifyFileName | kNotifyDirectoryName;

class DirectoryWatchesTest : public testing::Test {
 protected:
  using Watches = std::vector<DirectoryWatch>;

  DirectoryWatchesTest() { files_.Write(kFile, "x"); }

  static void Watch(Watches& watches, std::uint32_t filter,
                    const std::wstring& directory = kDirectory) {
    EXPECT_EQ(WatchDirectory(directory, filter, watches.emplace_back()), kSuccess);
  }

  Machine& machine_ = TheMachine();
  FileSystem& files_ = machine_.files;
  Event stop_{Event::Reset::kManual};
};

TEST_F(DirectoryWatchesTest, WhatTestsAndOtherProgramsDoIsToldAsItsOwnKindAlone) {
  const std::pair<std::uint32_t, std::function<void()>> changes[] = {
      {kNotifyLastWrite, [&] { files_.Touch(kFile); }},
      {kNotifyLastWrite, [&] { files_.SetWriteTime(kFile, 1); }},
      {kNotifyAttributes, [&] { files_.SetAttributes(kFile, kAttributeReadOnly); }},
      {kNotifySecurity, [&] { (void)files_.Protect(kFile, std::vector<std::uint8_t>(2)); }},
      {kNotifyLastWrite | kNotifySize, [&] { files_.Write(kFile, "longer"); }},
      {kNotifyFileName, [&] { files_.SetLink(L"C:\\App\\link", kFile); }},
      {kNotifyDirectoryName, [&] { files_.MakeDirectories(L"C:\\App\\a\\b"); }},
      {kNotifyDirectoryName, [&] { files_.Remove(L"C:\\App\\a"); }},
      {kNotifyFileName, [&] { files_.Remove(kFile); }},
  };
  for (const auto& change : changes) {
    // The one in front, which is for everything else, must stay quiet.
    Watches watches;
    Watch(watches, 0x1FF & ~change.first);
    Watch(watches, change.first);
    change.second();
    EXPECT_EQ(WaitForChange(stop_, watches), 2) << &change - changes;
  }
}

TEST_F(DirectoryWatchesTest, ARemovedDirectoryIsToldAndCantBeContinued) {
  files_.MakeDirectories(L"C:\\App\\a\\b");
  const std::pair<const wchar_t*, Code> rows[] = {
      {L"C:\\", kSuccess}, {kDirectory, kAccessDenied}, {L"C:\\App\\a\\b", kAccessDenied}};
  Watches watches[3];
  for (int i = 0; i < 3; ++i) Watch(watches[i], kNames, rows[i].first);
  files_.Remove(kDirectory);
  files_.Write(kFile, "back again");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(WaitForChange(stop_, watches[i]), 1) << i;
    EXPECT_EQ(ContinueWatch(watches[i][0]), rows[i].second) << i;
  }
  EXPECT_EQ(machine_.watches.open_watches(), 3u);
}

TEST_F(DirectoryWatchesTest, ARestartEndsTheWaits) {
  std::thread watcher([&] {
    Watches watches;
    Watch(watches, kNames);
    EXPECT_EQ(WaitForChange(stop_, watches), kWaitFailed);
    EXPECT_EQ(ContinueWatch(watches[0]), kInvalidHandle);
  });
  ASSERT_TRUE(machine_.watches.WaitForOpen(1));
  machine_.Restart();
  watcher.join();
}

// On a held clock a wait would otherwise be over before another thread has its turn.
TEST_F(DirectoryWatchesTest, AWaitOnAHeldClockComesAfterTheWorkOnSignals) {
  Event done(Event::Reset::kAutomatic);
  std::thread watcher([&] {
    Watches watches;
    Watch(watches, kNames);
    while (WaitForChange(stop_, watches) == 1) {
      EXPECT_EQ(WaitForAny({&done}, 0), kWaitTimedOut);  // a watcher does not wait for itself
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      done.Set();
      EXPECT_EQ(ContinueWatch(watches[0]), kSuccess);
    }
    EXPECT_EQ(WaitForAny({&stop_}, 0), 0);
  });
  ASSERT_TRUE(machine_.watches.WaitForOpen(1));
  for (const wchar_t* name : {L"C:\\App\\a", L"C:\\App\\b"}) {
    files_.Write(name, "");
    EXPECT_EQ(WaitForAny({&done}, 1000), 0);
  }
  stop_.Set();
  files_.Write(L"C:\\App\\c", "");
  watcher.join();
  EXPECT_EQ(WaitForAny({&done}, 1000), kWaitTimedOut);
}

}  // namespace
}  // namespace simulation

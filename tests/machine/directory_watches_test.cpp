// What the contract can't reach through the seam: directories that are removed, restarts, and tests
// that wait for threads at work on a signal.
#include "simulation/machine/directory_watches.h"

#include <gtest/gtest.h>

#include <atomic>
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
  DirectoryWatchesTest() { machine_.files.Write(kFile, "x"); }

  DirectoryWatch Watch(std::uint32_t filter, const std::wstring& directory = kDirectory) {
    DirectoryWatch watch;
    EXPECT_EQ(WatchDirectory(directory, filter, watch), kSuccess);
    return watch;
  }

  int Wait(DirectoryWatch& watch) {
    std::vector<DirectoryWatch> watches;
    watches.push_back(std::move(watch));
    const int outcome = WaitForChange(stop_, watches);
    watch = std::move(watches[0]);
    return outcome;
  }

  Machine& machine_ = TheMachine();
  Event stop_{Event::Reset::kManual};
};

TEST_F(DirectoryWatchesTest, WhatTestsAndOtherProgramsDoIsTold) {
  const std::pair<std::uint32_t, std::function<void()>> changes[] = {
      {kNotifyLastWrite, [&] { machine_.files.Touch(kFile); }},
      {kNotifyLastWrite, [&] { machine_.files.SetWriteTime(kFile, 1); }},
      {kNotifyAttributes, [&] { machine_.files.SetAttributes(kFile, kAttributeReadOnly); }},
      {kNotifySecurity,
       [&] {
         EXPECT_EQ(machine_.files.Protect(kFile, {1, 2}), kSuccess);
       }},
      {kNotifyLastWrite | kNotifySize, [&] { machine_.files.Write(kFile, "longer"); }},
      {kNotifyFileName, [&] { machine_.files.SetLink(L"C:\\App\\link", kFile); }},
      {kNotifyDirectoryName, [&] { machine_.files.MakeDirectories(L"C:\\App\\a\\b"); }},
      {kNotifyDirectoryName, [&] { machine_.files.Remove(L"C:\\App\\a"); }},
      {kNotifyFileName, [&] { machine_.files.Remove(kFile); }},
  };
  std::size_t number = 0;
  for (const auto& [kinds, change] : changes) {
    DirectoryWatch told = Watch(kinds);
    DirectoryWatch others = Watch(0x1FF & ~kinds);
    change();
    stop_.Clear();
    EXPECT_EQ(Wait(told), 1) << number;
    stop_.Set();
    ASSERT_EQ(ContinueWatch(others), kSuccess);
    stop_.Clear();
    std::vector<DirectoryWatch> both;
    both.push_back(std::move(others));
    both.push_back(std::move(told));
    EXPECT_EQ(WaitForChange(stop_, both), 2) << number;
    ++number;
  }
}

TEST_F(DirectoryWatchesTest, ARemovedDirectoryIsToldAndCantBeContinued) {
  machine_.files.MakeDirectories(L"C:\\App\\a\\b");
  DirectoryWatch above = Watch(kNames, L"C:\\");
  DirectoryWatch removed = Watch(kNames);
  DirectoryWatch below = Watch(kNames, L"C:\\App\\a\\b");
  machine_.files.Remove(kDirectory);
  machine_.files.Write(kFile, "back again");
  for (DirectoryWatch* watch : {&removed, &below}) {
    EXPECT_EQ(Wait(*watch), 1);
    EXPECT_EQ(ContinueWatch(*watch), kAccessDenied);
  }
  EXPECT_EQ(Wait(above), 1);
  EXPECT_EQ(ContinueWatch(above), kSuccess);
  EXPECT_EQ(machine_.watches.open_watches(), 3u);
}

TEST_F(DirectoryWatchesTest, ARestartEndsTheWaits) {
  int outcome = 0;
  Code continued = kSuccess;
  std::thread watcher([&] {
    DirectoryWatch watch = Watch(kNames);
    outcome = Wait(watch);
    continued = ContinueWatch(watch);
  });
  ASSERT_TRUE(machine_.watches.WaitForOpen(1));
  machine_.Restart();
  watcher.join();
  EXPECT_EQ(outcome, kWaitFailed);
  EXPECT_EQ(continued, kInvalidHandle);
}

// On a held clock a wait would otherwise be over before another thread has its turn.
TEST_F(DirectoryWatchesTest, AWaitOnAHeldClockComesAfterTheWorkOnSignals) {
  Event done(Event::Reset::kAutomatic);
  std::thread watcher([&] {
    DirectoryWatch watch = Watch(kNames);
    while (Wait(watch) == 1) {
      EXPECT_EQ(WaitForAny({&done}, 0), kWaitTimedOut);  // a watcher does not wait for itself
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      done.Set();
      EXPECT_EQ(ContinueWatch(watch), kSuccess);
    }
    EXPECT_EQ(WaitForAny({&stop_}, 0), 0);
  });
  ASSERT_TRUE(machine_.watches.WaitForOpen(1));
  for (const wchar_t* name : {L"C:\\App\\a", L"C:\\App\\b"}) {
    machine_.files.Write(name, "");
    EXPECT_EQ(WaitForAny({&done}, 1000), 0);
  }
  stop_.Set();
  machine_.files.Write(L"C:\\App\\c", "");
  watcher.join();
  EXPECT_EQ(WaitForAny({&done}, 1000), kWaitTimedOut);
}

}  // namespace
}  // namespace simulation

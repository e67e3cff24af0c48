// Watches on directories. A watch further back that is surely signalled ends the waits in which the
// one in front must stay quiet.
#include "platform/change_notification.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/contract/scratch.h"

namespace {

using namespace kestrelon::platform;
using namespace contract;

constexpr std::uint32_t kNames = kNotifyFileName | kNotifyDirectoryName;

class ChangeNotification : public testing::Test {
 protected:
  void Watch(const std::wstring& directory, std::uint32_t filter) {
    DirectoryWatch watch;
    ASSERT_EQ(WatchDirectory(directory, filter, watch), kSuccess);
    watches_.push_back(std::move(watch));
  }

  Event stop_{Event::Reset::kManual};
  std::vector<DirectoryWatch> watches_;
  const std::wstring directory_ = FreshDirectory();
  const std::wstring other_ = FreshDirectory();
};

TEST_F(ChangeNotification, TellsWhyADirectoryCantBeWatched) {
  WriteWhole(directory_ + L"\\file", "");
  DirectoryWatch watch;
  EXPECT_EQ(WatchDirectory(directory_ + L"\\none", kNames, watch), kFileNotFound);
  EXPECT_EQ(WatchDirectory(directory_ + L"\\none\\none", kNames, watch), kPathNotFound);
  EXPECT_NE(WatchDirectory(directory_ + L"\\file", kNames, watch), kSuccess);
  EXPECT_EQ(watch.handle(), 0u);
}

TEST_F(ChangeNotification, EachKindOfChangeIsTold) {
  const std::wstring file = directory_ + L"\\file";
  const std::wstring renamed = directory_ + L"\\renamed";
  const std::pair<std::uint32_t, std::function<void()>> changes[] = {
      {kNotifyFileName, [&] { WriteWhole(file, "first"); }},
      {kNotifyLastWrite, [&] { WriteWhole(file, "again"); }},
      {kNotifySize, [&] { WriteWhole(file, "longer than before"); }},
      {kNotifyFileName, [&] { EXPECT_EQ(RenameFile(file, renamed, 0), kSuccess); }},
      {kNotifyFileName, [&] { EXPECT_EQ(DuplicateFile(renamed, file), kSuccess); }},
      {kNotifyFileName, [&] { EXPECT_EQ(RemoveFile(renamed), kSuccess); }},
      {kNotifyDirectoryName, [&] { EXPECT_EQ(MakeDirectory(directory_ + L"\\sub"), kSuccess); }},
  };
  for (const auto& [kind, change] : changes) {
    watches_.clear();
    Watch(directory_, kind);
    change();
    EXPECT_EQ(WaitForChange(stop_, watches_), 1) << kind;
  }
}

TEST_F(ChangeNotification, OtherKindsAndWhatIsBelowAreNotTold) {
  ASSERT_EQ(MakeDirectory(directory_ + L"\\sub"), kSuccess);
  WriteWhole(directory_ + L"\\file", "x");
  Watch(directory_, kNames);
  Watch(other_, kNames);
  WriteWhole(directory_ + L"\\sub\\file", "below");
  File file;
  ASSERT_EQ(OpenFile(directory_ + L"\\file", kAppendData, kShareAll, kOpenExisting, 0, file),
            kSuccess);
  std::uint32_t written = 0;
  ASSERT_EQ(WriteFileBytes(file, "y", 1, written), kSuccess);
  file.Close();
  WriteWhole(other_ + L"\\file", "");
  EXPECT_EQ(WaitForChange(stop_, watches_), 2);
}

TEST_F(ChangeNotification, ASignalStaysUntilItIsTakenUp) {
  Watch(directory_, kNames);
  Watch(other_, kNames);
  for (const wchar_t* name : {L"\\a", L"\\b"}) {
    WriteWhole(directory_ + name, "");
    ASSERT_EQ(WaitForChange(stop_, watches_), 1);
    EXPECT_EQ(WaitForChange(stop_, watches_), 1);
    ASSERT_EQ(ContinueWatch(watches_[0]), kSuccess);
  }
  WriteWhole(other_ + L"\\a", "");
  EXPECT_EQ(WaitForChange(stop_, watches_), 2);
  stop_.Set();
  EXPECT_EQ(WaitForChange(stop_, watches_), 0) << "the stop goes before all signals";
}

TEST_F(ChangeNotification, WhatHappensBeforeASignalIsTakenUpIsToldNext) {
  Watch(directory_, kNames);
  WriteWhole(directory_ + L"\\a", "");
  ASSERT_EQ(WaitForChange(stop_, watches_), 1);
  WriteWhole(directory_ + L"\\b", "");
  ASSERT_EQ(ContinueWatch(watches_[0]), kSuccess);
  EXPECT_EQ(WaitForChange(stop_, watches_), 1);
}

TEST_F(ChangeNotification, SixtyThreeAreWaitedForAndNotOneMore) {
  for (std::size_t i = 1; i < kMostWatchesInWait; ++i) Watch(directory_, kNames);
  Watch(other_, kNames);
  WriteWhole(other_ + L"\\a", "");
  EXPECT_EQ(WaitForChange(stop_, watches_), 63);
  Watch(other_, kNames);
  EXPECT_EQ(WaitForChange(stop_, watches_), kWaitFailed);
}

}  // namespace

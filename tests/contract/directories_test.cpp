// Names: directories, searching, renaming, copying, deleting.
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/files.h"
#include "tests/contract/scratch.h"

namespace {

using namespace kestrelon::platform;
using namespace contract;

std::vector<std::wstring> Names(const std::wstring& pattern, std::size_t most = 100) {
  std::vector<FoundFile> found;
  EXPECT_EQ(FindFiles(pattern, most, found), kSuccess);
  std::vector<std::wstring> names;
  for (const FoundFile& entry : found) names.push_back(entry.name);
  std::sort(names.begin(), names.end());
  return names;
}

TEST(Names, WhatCanNotBeDoneIsToldAndChangesNothing) {
  const std::wstring directory = FreshDirectory();
  const std::wstring here = directory + L"\\here";
  const std::wstring none = directory + L"\\none";
  const std::wstring below_none = none + L"\\none";
  WriteWhole(here, "x");
  EXPECT_EQ(MakeDirectory(directory), kAlreadyExists);
  EXPECT_EQ(MakeDirectory(directory + L"\\HERE"), kAlreadyExists);
  EXPECT_EQ(MakeDirectory(below_none), kPathNotFound);
  EXPECT_EQ(RenameFile(none, here, kReplaceExisting), kFileNotFound);
  EXPECT_EQ(RenameFile(here, below_none, kReplaceExisting), kPathNotFound);
  EXPECT_EQ(DuplicateFile(none, here), kFileNotFound);
  EXPECT_EQ(DuplicateFile(here, below_none), kPathNotFound);
  EXPECT_EQ(RemoveFile(none), kFileNotFound);
  EXPECT_EQ(RemoveFile(below_none), kPathNotFound);
  EXPECT_EQ(RemoveFile(directory), kAccessDenied);
  EXPECT_EQ(ReadWhole(here), "x");
}

TEST(FindFiles, MatchesPatternsWithoutRegardToCase) {
  const std::wstring directory = FreshDirectory();
  for (const wchar_t* name : {L"config-1.json", L"Config-22.JSON", L"config.json", L"a", L"b.c"}) {
    WriteWhole(directory + L"\\" + name, "");
  }
  const std::pair<const wchar_t*, std::vector<std::wstring>> cases[] = {
      {L"config-*.json", {L"Config-22.JSON", L"config-1.json"}},
      {L"CONFIG-?.json", {L"config-1.json"}},
      {L"*", {L"Config-22.JSON", L"a", L"b.c", L"config-1.json", L"config.json"}},
      {L"*.*", {L"Config-22.JSON", L"a", L"b.c", L"config-1.json", L"config.json"}},
      {L"?.c", {L"b.c"}},
      {L"B.C", {L"b.c"}},
  };
  for (const auto& [pattern, names] : cases) {
    EXPECT_EQ(Names(directory + L"\\" + pattern), names) << testing::PrintToString(pattern);
  }
  EXPECT_EQ(Names(directory + L"\\*", 2).size(), 2u);
}

TEST(FindFiles, TellsNoMatchFromNoDirectoryAndMarksDirectories) {
  const std::wstring directory = FreshDirectory();
  std::vector<FoundFile> found = {{L"kept", 0}};
  EXPECT_EQ(FindFiles(directory + L"\\*", 9, found), kFileNotFound);
  EXPECT_EQ(FindFiles(directory + L"\\x*.json", 9, found), kFileNotFound);
  EXPECT_EQ(FindFiles(directory + L"\\none\\*", 9, found), kPathNotFound);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].name, L"kept");
  ASSERT_EQ(MakeDirectory(directory + L"\\sub"), kSuccess);
  WriteWhole(directory + L"\\file", "");
  ASSERT_EQ(FindFiles(directory + L"\\*", 9, found), kSuccess);
  ASSERT_EQ(found.size(), 2u);
  for (const FoundFile& entry : found) {
    EXPECT_EQ((entry.attributes & kAttributeDirectory) != 0, entry.name == L"sub");
  }
}

TEST(RenameFile, ReplacesTheTargetInOneStep) {
  const std::wstring directory = FreshDirectory();
  const std::wstring from = directory + L"\\config.json.tmp";
  const std::wstring to = directory + L"\\config.json";
  WriteWhole(from, "new");
  WriteWhole(to, "old");
  EXPECT_EQ(RenameFile(from, to, 0), kAlreadyExists);
  EXPECT_EQ(ReadWhole(to), "old");
  EXPECT_EQ(RenameFile(from, to, kReplaceExisting | kWriteThrough), kSuccess);
  EXPECT_EQ(ReadWhole(to), "new");
  EXPECT_FALSE(Exists(from));
}

// A file that is held open and may not be deleted is neither renamed, replaced nor removed.
TEST(HeldFile, KeepsItsName) {
  const std::wstring directory = FreshDirectory();
  const std::wstring from = directory + L"\\from";
  const std::wstring to = directory + L"\\to";
  WriteWhole(from, "new");
  WriteWhole(to, "old");
  File held;
  const std::uint32_t share = kShareRead | kShareWrite;
  ASSERT_EQ(OpenFile(to, kGenericRead, share, kOpenExisting, kNormalFile, held), kSuccess);
  EXPECT_EQ(RenameFile(from, to, kReplaceExisting), kAccessDenied);
  EXPECT_EQ(RemoveFile(to), kSharingViolation);
  ASSERT_EQ(OpenFile(from, kGenericRead, share, kOpenExisting, kNormalFile, held), kSuccess);
  EXPECT_EQ(RenameFile(from, to, kReplaceExisting), kSharingViolation);
  held.Close();
  EXPECT_EQ(ReadWhole(from), "new");
  EXPECT_EQ(ReadWhole(to), "old");
  EXPECT_EQ(RemoveFile(directory + L"\\TO"), kSuccess);
  EXPECT_FALSE(Exists(to));
}

TEST(DuplicateFile, ReplacesTheTargetAndLeavesTheSource) {
  const std::wstring directory = FreshDirectory();
  WriteWhole(directory + L"\\a", "longer than before");
  WriteWhole(directory + L"\\b", "before");
  ASSERT_EQ(DuplicateFile(directory + L"\\a", directory + L"\\b"), kSuccess);
  EXPECT_EQ(ReadWhole(directory + L"\\a"), "longer than before");
  EXPECT_EQ(ReadWhole(directory + L"\\b"), "longer than before");
}

}  // namespace

#include "identity/app_pattern.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

using simulation::TheMachine;
using Paths = std::vector<std::wstring>;

TEST(AppPattern, Matches) {
  struct Row {
    const wchar_t* pattern;
    const wchar_t* name;
    bool matches;
  };
  const Row rows[] = {
      {L"C:\\a\\app.exe", L"c:\\A\\APP.EXE", true},
      {L"C:\\a\\*.exe", L"C:\\a\\b.exe", true},
      {L"C:\\a\\*.exe", L"C:\\a\\.exe", true},
      {L"C:\\a\\*.exe", L"C:\\a\\b\\c.exe", false},
      {L"C:\\a\\*.exe", L"C:\\a\\b/c.exe", false},
      {L"C:\\*\\app.exe", L"C:\\v1\\app.exe", true},
      {L"C:\\*\\app.exe", L"C:\\v1\\v2\\app.exe", false},
      {L"C:\\*\\*\\app.exe", L"C:\\v1\\v2\\app.exe", true},
      {L"*a*b*c", L"xaxbxbxc", true},
      {L"*a*b*c", L"xaxbxcx", false},
      {L"*aab", L"aaab", true},
      {L"a?c", L"abc", true},
      {L"a?c", L"ac", false},
      {L"a?c", L"a\\c", false},
      {L"a?c", L"a/c", false},
      {L"abc***", L"abc", true},
      {L"abc*", L"abc\\d", false},
      {L"abc", L"abcd", false},
      {L"abcd", L"abc", false},
      {L"%SystemRoot%\\*", L"c:\\windows\\x.exe", true},
      {L"", L"", true},
      {L"", L"a", false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(MatchPattern(row.pattern, row.name), row.matches) << row.pattern << L" " << row.name;
  }
}

TEST(AppPattern, ExpandsToFiles) {
  auto& files = TheMachine().files;
  for (const wchar_t* path :
       {L"C:\\p\\v1\\app.exe", L"C:\\p\\v2\\app.exe", L"C:\\p\\v2\\tool.exe",
        L"C:\\p\\v3\\other.exe", L"C:\\p\\top.exe", L"\\\\server\\share\\v1\\app.exe"}) {
    files.Write(path, "x");
  }
  files.MakeDirectories(L"C:\\p\\v4\\app.exe");
  struct Row {
    const wchar_t* pattern;
    Paths files;
  };
  const Row rows[] = {
      {L"C:\\p\\v1\\app.exe", {L"C:\\p\\v1\\app.exe"}},
      {L"C:\\p\\none.exe", {L"C:\\p\\none.exe"}},
      {L"%SystemRoot%\\none.exe", {L"C:\\Windows\\none.exe"}},
      {L"System", {L"System"}},
      {L"C:\\p\\*\\app.exe", {L"C:\\p\\v1\\app.exe", L"C:\\p\\v2\\app.exe"}},
      {L"C:/p/v?/app.exe", {L"C:\\p\\v1\\app.exe", L"C:\\p\\v2\\app.exe"}},
      {L"C:\\p\\*.exe", {L"C:\\p\\top.exe"}},
      {L"C:\\p\\v2\\*", {L"C:\\p\\v2\\app.exe", L"C:\\p\\v2\\tool.exe"}},
      {L"C:\\p\\none*\\app.exe", {}},
      {L"\\\\server\\share\\*\\app.exe", {L"\\\\server\\share\\v1\\app.exe"}},
      {L"\\\\server\\*.exe", {}},
      {L"*:\\p\\top.exe", {}},
      {L"*.exe", {}},
      {L"C:\\p\\*\\", {}},
  };
  for (const Row& row : rows) {
    Paths found = ExpandAppPattern(row.pattern);
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, row.files) << row.pattern;
  }
}

TEST(AppPattern, LinkedDirectoriesAreNotEntered) {
  auto& files = TheMachine().files;
  files.Write(L"C:\\p\\v1\\app.exe", "x");
  files.Write(L"C:\\p\\v2\\app.exe", "x");
  files.SetLink(L"C:\\p\\v2", L"C:\\elsewhere");
  EXPECT_EQ(ExpandAppPattern(L"C:\\p\\*\\app.exe"), Paths{L"C:\\p\\v1\\app.exe"});
}

TEST(AppPattern, IsBounded) {
  auto& files = TheMachine().files;
  for (int i = 0; i < 65; ++i) {
    files.Write(L"C:\\many\\" + std::to_wstring(1000 + i) + L".exe", "x");
  }
  EXPECT_EQ(ExpandAppPattern(L"C:\\many\\*.exe").size(), 64u);

  // Of 257 directories the one file lies in the last: it is beyond the names of a level. Files
  // beside the directories don't use up the level's names.
  for (int i = 0; i < 256; ++i) {
    files.Write(L"C:\\wide\\" + std::to_wstring(1000 + i) + L".txt", "x");
    files.MakeDirectories(L"C:\\wide\\d" + std::to_wstring(1000 + i));
  }
  files.Write(L"C:\\wide\\d1255\\app.exe", "x");
  files.Write(L"C:\\wide\\d1256\\app.exe", "x");
  EXPECT_EQ(ExpandAppPattern(L"C:\\wide\\*\\app.exe"), Paths{L"C:\\wide\\d1255\\app.exe"});
}

}  // namespace
}  // namespace kestrelon

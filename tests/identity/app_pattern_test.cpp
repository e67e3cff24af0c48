#include "identity/app_pattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>

#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

using simulation::TheMachine;
using Paths = std::vector<std::wstring>;

bool MatchesObviously(std::wstring_view pattern, std::wstring_view name) {
  if (pattern.empty()) return name.empty();
  const bool takes_one = !name.empty() && name[0] != L'\\';
  if (pattern[0] == L'*') {
    return MatchesObviously(pattern.substr(1), name) ||
           (takes_one && MatchesObviously(pattern, name.substr(1)));
  }
  const bool first = pattern[0] == L'?' ? takes_one : !name.empty() && name[0] == pattern[0];
  return first && MatchesObviously(pattern.substr(1), name.substr(1));
}

// All texts over an alphabet of up to a length.
Paths AllTexts(std::wstring_view alphabet, std::size_t length) {
  Paths texts = {L""};
  for (std::size_t from = 0; texts[from].size() < length; ++from) {
    for (const wchar_t letter : alphabet) texts.push_back(texts[from] + letter);
  }
  return texts;
}

TEST(AppPattern, AgreesWithAnObviousMatcher) {
  const Paths names = AllTexts(L"ab\\", 5);
  for (const std::wstring& pattern : AllTexts(L"ab\\*?", 4)) {
    for (const std::wstring& name : names) {
      ASSERT_EQ(MatchPattern(pattern, name), MatchesObviously(pattern, name))
          << pattern << L" against " << name;
    }
  }
  EXPECT_TRUE(MatchPattern(L"%SystemRoot%\\*", L"c:\\WINDOWS\\x.exe"));
  EXPECT_FALSE(MatchPattern(L"C:\\a\\*.exe", L"C:\\a\\b/c.exe"));
  EXPECT_FALSE(MatchPattern(L"a?c", L"a/c"));
}

TEST(AppPattern, ExpandsToFiles) {
  auto& files = TheMachine().files;
  for (const wchar_t* path :
       {L"C:\\p\\v1\\app.exe", L"C:\\p\\v2\\app.exe", L"C:\\p\\v2\\tool.exe",
        L"C:\\p\\v3\\other.exe", L"C:\\p\\top.exe", L"\\\\server\\share\\v1\\app.exe"}) {
    files.Write(path, "x");
  }
  files.MakeDirectories(L"C:\\p\\v4\\app.exe");
  files.Write(L"C:\\elsewhere\\app.exe", "x");
  files.SetLink(L"C:\\p\\v5", L"C:\\elsewhere");  // links are not entered
  const Paths both = {L"C:\\p\\v1\\app.exe", L"C:\\p\\v2\\app.exe"};
  const std::pair<const wchar_t*, Paths> rows[] = {
      {L"C:\\p\\v1\\app.exe", {L"C:\\p\\v1\\app.exe"}},
      {L"C:\\p\\none.exe", {L"C:\\p\\none.exe"}},
      {L"%SystemRoot%\\none.exe", {L"C:\\Windows\\none.exe"}},
      {L"System", {L"System"}},
      {L"C:\\p\\*\\app.exe", both},
      {L"C:/p/v?/app.exe", both},
      {L"C:\\p\\*.exe", {L"C:\\p\\top.exe"}},
      {L"C:\\p\\v2\\*", {L"C:\\p\\v2\\app.exe", L"C:\\p\\v2\\tool.exe"}},
      {L"\\\\server\\share\\*\\app.exe", {L"\\\\server\\share\\v1\\app.exe"}},
  };
  for (const auto& [pattern, expected] : rows) {
    Paths found = ExpandAppPattern(pattern);
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, expected) << pattern;
  }
  for (const wchar_t* nothing : {L"C:\\p\\none*\\app.exe", L"\\\\server\\*.exe", L"*:\\p\\top.exe",
                                 L"*.exe", L"C:\\p\\*\\"}) {
    EXPECT_EQ(ExpandAppPattern(nothing), Paths{}) << nothing;
  }
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

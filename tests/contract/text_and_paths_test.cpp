// Letter case, messages of codes, and where things are.
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/paths.h"
#include "platform/system_text.h"

namespace {

using namespace kestrelon::platform;

TEST(EqualIgnoringCase, ComparesLetterByLetter) {
  const struct {
    const wchar_t *a, *b;
    bool equal;
  } cases[] = {
      {L"", L"", true},         {L"Abc", L"aBC", true},
      {L"abc", L"abd", false},  {L"abc", L"ab", false},
      {L"", L"a", false},       {L"\u00c4\u00c9\u0416\u03a9", L"\u00e4\u00e9\u0436\u03c9", true},
      {L"\u00e9", L"e", false}, {L"stra\u00dfe", L"STRASSE", false},
      {L"[", L"{", false},      {L"@", L"`", false},
      {L"\u212a", L"k", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(EqualIgnoringCase(c.a, c.b), c.equal) << testing::PrintToString(c.a);
    EXPECT_EQ(EqualIgnoringCase(c.b, c.a), c.equal) << testing::PrintToString(c.a);
  }
  EXPECT_FALSE(EqualIgnoringCase(std::wstring_view(L"a\0b", 3), std::wstring_view(L"a\0c", 3)));
}

TEST(LowerCase, ChangesLettersAlone) {
  EXPECT_EQ(LowerCase(L"C:\\Program Files\\X [1].EXE"), L"c:\\program files\\x [1].exe");
  EXPECT_EQ(LowerCase(L"\u00c4\u00c9\u0416\u03a9\u00df"), L"\u00e4\u00e9\u0436\u03c9\u00df");
  EXPECT_EQ(LowerCase(L""), L"");
}

TEST(SystemMessage, IsThereForCommonCodesAndEmptyForUnknownOnesAndModules) {
  for (const Code code : {kFileNotFound, kAccessDenied, kSharingViolation, kDiskFull}) {
    EXPECT_FALSE(SystemMessage(code).empty()) << code;
  }
  EXPECT_NE(SystemMessage(kFileNotFound), SystemMessage(kAccessDenied));
  EXPECT_EQ(SystemMessage(0x20000001), L"");
  EXPECT_EQ(ModuleMessage(L"no such module.dll", kAccessDenied), L"");
}

TEST(ExpandEnvironment, ReplacesKnownNamesAlone) {
  std::wstring root;
  ASSERT_EQ(ExpandEnvironment(L"%SystemRoot%", root), kSuccess);
  EXPECT_TRUE(EqualIgnoringCase(root, L"C:\\Windows"));
  const std::pair<std::wstring, std::wstring> cases[] = {
      {L"", L""},
      {L"no variable", L"no variable"},
      {L"%systemROOT%\\System32\\x.exe", root + L"\\System32\\x.exe"},
      {L"a%SystemRoot%b%SystemRoot%", L"a" + root + L"b" + root},
      {L"%NO_SUCH_VARIABLE%\\x", L"%NO_SUCH_VARIABLE%\\x"},
      {L"100%", L"100%"},
  };
  for (const auto& [text, expected] : cases) {
    std::wstring expanded = L"unchanged";
    ASSERT_EQ(ExpandEnvironment(text, expanded), kSuccess);
    EXPECT_EQ(expanded, expected);
  }
}

TEST(LogicalDrives, HoldTheSystemsDriveWithItsDevice) {
  std::vector<std::wstring> roots;
  ASSERT_EQ(LogicalDrives(roots), kSuccess);
  EXPECT_NE(std::find(roots.begin(), roots.end(), L"C:\\"), roots.end());
  for (const std::wstring& root : roots) {
    EXPECT_EQ(root.substr(1), L":\\");
    std::wstring device;
    ASSERT_EQ(DeviceOfDrive(root.substr(0, 2), device), kSuccess);
    EXPECT_TRUE(StartsWithIgnoringCase(device, L"\\Device\\"));
  }
  std::wstring device = L"unchanged";
  EXPECT_EQ(DeviceOfDrive(L"?:", device), kFileNotFound);
  EXPECT_EQ(device, L"unchanged");
}

}  // namespace

#include "base/text.h"

#include <gtest/gtest.h>

namespace kestrelon {
namespace {

using namespace std::string_literals;

// U+1F600 in the units of the platform at hand.
const std::wstring kFace = WideFromUtf8("\xF0\x9F\x98\x80");

TEST(Text, EveryCodePointSurvivesBothConversions) {
  for (char32_t point = 0; point <= 0x10FFFF; ++point) {
    if (point >= 0xD800 && point <= 0xDFFF) continue;
    std::string narrow;
    AppendUtf8(point, narrow);
    ASSERT_EQ(Utf8FromWide(WideFromUtf8(narrow)), narrow) << std::hex << std::uint32_t{point};
  }
  EXPECT_EQ(WideFromUtf8("a\xC3\xA9\xE2\x82\xAC"), L"a\x00E9\x20AC");
  EXPECT_EQ(kFace.size(), sizeof(wchar_t) == 2 ? 2u : 1u);
}

TEST(Text, MalformedUtf8BecomesReplacements) {
  const std::wstring bad(1, L'\xFFFD');
  const std::pair<std::string, std::wstring> rows[] = {
      {"\x80", bad},
      {"a\xC3", L"a" + bad},                        // cut short
      {"\xC3(", bad + L"("},                        // the byte that broke it stands
      {"\xC0\x80", bad + bad},                      // overlong
      {"\xE0\x80\x80", bad + bad + bad},            // overlong
      {"\xE2\x82!", bad + L"!"},                    // one replacement for what was well formed
      {"\xED\xA0\x80", bad + bad + bad},            // a surrogate
      {"\xF0\x9F\x98", bad},                        // cut short
      {"\xF0\x8F\xBF\xBF", bad + bad + bad + bad},  // overlong
      {"\xF4\x90\x80\x80", bad + bad + bad + bad},  // above U+10FFFF
      {"\xFF"
       "a\0b"s,
       bad + L"a\0b"s},
  };
  for (const auto& [bytes, text] : rows) EXPECT_EQ(WideFromUtf8(bytes), text) << bytes;
}

TEST(Text, UnpairedSurrogatesBecomeReplacements) {
  const std::wstring high(1, static_cast<wchar_t>(0xD83D));
  const std::wstring low(1, static_cast<wchar_t>(0xDE00));
  EXPECT_EQ(Utf8FromWide(high + L"a"),
            "\xEF\xBF\xBD"
            "a");
  EXPECT_EQ(Utf8FromWide(L"a" + high), "a\xEF\xBF\xBD");
  EXPECT_EQ(Utf8FromWide(low + high), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(Utf8FromWide(high + low), "\xF0\x9F\x98\x80");
}

TEST(Text, TrimTakesBlanksAndLineEndsOnly) {
  EXPECT_EQ(Trim(L" \t\r\n a b \v\n"), L"a b \v");
  EXPECT_EQ(Trim(L" \t\r\n"), L"");
  EXPECT_EQ(Trim(L"\x00A0"
                 L"a"),
            L"\x00A0"
            L"a");
}

TEST(Text, SplitKeepsEmptyPieces) {
  using Pieces = std::vector<std::wstring_view>;
  EXPECT_EQ(SplitAt(L"a,;b", L",;"), (Pieces{L"a", L"", L"b"}));
  EXPECT_EQ(SplitAt(L",", L","), (Pieces{L"", L""}));
  EXPECT_EQ(SplitAt(L"", L","), (Pieces{L""}));
}

TEST(Text, Utf16BytesAreThoseOfThePlatform) {
  using Bytes = std::vector<std::uint8_t>;
  EXPECT_EQ(Utf16BytesWithNull(L""), (Bytes{0, 0}));
  EXPECT_EQ(Utf16BytesWithNull(L"A\x20AC"), (Bytes{0x41, 0, 0xAC, 0x20, 0, 0}));
  EXPECT_EQ(Utf16BytesWithNull(kFace), (Bytes{0x3D, 0xD8, 0x00, 0xDE, 0, 0}));
}

TEST(Text, HexIsLowerCaseWithLeadingZeros) {
  const std::uint8_t bytes[] = {0x00, 0x0A, 0xFF};
  EXPECT_EQ(HexText(bytes, 3), L"000aff");
}

}  // namespace
}  // namespace kestrelon

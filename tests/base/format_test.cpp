#include "base/format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "base/guid.h"

namespace kestrelon {
namespace {

TEST(Format, WritesWhatPrintfWould) {
  const std::wstring name = L"a%s";
  EXPECT_EQ(Format(L"'%s' 100%%", name), L"'a%s' 100%");
  EXPECT_EQ(Format(L"%d %lld", -5, std::numeric_limits<std::int64_t>::min()),
            L"-5 -9223372036854775808");
  EXPECT_EQ(Format(L"%u %lu %llu %zu", 7u, 8ul, std::numeric_limits<std::uint64_t>::max(),
                   std::size_t{9}),
            L"7 8 18446744073709551615 9");
  EXPECT_EQ(Format(L"0x%08lx 0x%08X %x", 0x80320003u, 0xABCu, 0u), L"0x80320003 0x00000ABC 0");
  EXPECT_EQ(Format(L"%04u%02u|%5d|%05d|%02d", 26u, 3u, -42, -42, 123), L"002603|  -42|-0042|123");
  EXPECT_EQ(Format(L"%.1f %f %.0f", 2.25, -1.5, 1e300).substr(0, 13), L"2.2 -1.500000");
}

TEST(Guid, TextHasTheFormOfThePlatform) {
  constexpr Guid guid = MakeGuid("01234567-89ab-CDEF-0011-aabbccddeeff");
  EXPECT_EQ(GuidText(guid), "{01234567-89AB-CDEF-0011-AABBCCDDEEFF}");
  EXPECT_EQ(MakeGuid("{01234567-89ab-cdef-0011-aabbccddeeff}"), guid);
}

}  // namespace
}  // namespace kestrelon

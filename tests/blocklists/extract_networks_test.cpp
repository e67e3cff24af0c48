// What counts as a network in the text of a feed.
#include "blocklists/extract_networks.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "base/format.h"
#include "base/text.h"

namespace kestrelon {
namespace {

// The entries, each followed by a blank, and behind them the number of rejected ones if any.
std::string Extracted(std::string_view text) {
  std::size_t rejected = 99;
  std::wstring result;
  for (const std::wstring& entry : ExtractNetworks(text, &rejected)) result += entry + L" ";
  if (rejected != 0) result += Format(L"-%zu", rejected);
  return Utf8FromWide(result);
}

struct Case {
  std::string_view text;
  std::string_view expected;
};

void Check(std::initializer_list<Case> cases) {
  for (const auto& [text, expected] : cases) EXPECT_EQ(Extracted(text), expected) << text;
}

TEST(ExtractNetworks, FindsNetworksInWhateverTextAFeedServes) {
  Check({
      {"", ""},
      {R"({"cidr":"1.10.16.0/20","sblid":"SBL256894","rir":"apnic"})", "1.10.16.0/20 "},
      {R"({"type":"metadata","timestamp":1700000000,"size":1000})", ""},
      {R"({"cidr":"2001:db8::/32","rir":"afrinic"})", "2001:db8::/32 "},
      {"9.9.9.9\r\n8.8.8.8/32\r\n2620:fe::fe", "9.9.9.9 8.8.8.8/32 2620:fe::fe "},
      {"9.9.9.9-9.9.9.12,(8.8.8.8)", "9.9.9.9 9.9.9.12 8.8.8.8 "},
      {"\xEF\xBB\xBF"
       "9.9.9.9\xC3\xA9",
       "9.9.9.9 "},
      {std::string_view("9.9.9.9\0"
                        "8.8.8.8",
                        15),
       "9.9.9.9 8.8.8.8 "},
  });
}

TEST(ExtractNetworks, SkipsCommentsToTheEndOfTheirLine) {
  Check({
      {"; 1.2.3.4\n# 1.2.3.4", ""},
      {"1.2.3.4;5.6.7.8\n9.9.9.9", "1.2.3.4 9.9.9.9 "},
      {"1.2.3.4#5.6.7.8\r9.9.9.9\n8.8.8.8", "1.2.3.4 8.8.8.8 "},
      {"word#\n1.2.3.4", "1.2.3.4 "},
  });
}

TEST(ExtractNetworks, TakesNoPartOfALongerWord) {
  Check({
      {"x1.2.3.4 1.2.3.4_a z::2/64", ""},
      {"_1.2.3.4 1.2.3.4x9.9.9.9 1.2.3.4/24th", ""},
      {"v1.2.3.4\n1.2.3.4", "1.2.3.4 "},
  });
}

TEST(ExtractNetworks, CountsOnlyWhatHasTheMarksOfAnAddress) {
  Check({
      {"1 1.2 1.2.3 1.2.3.4.5 1.2.3.4:80 12:30 ad1e f/f : / . dead:beef", ""},
      {"... :: 1.2.3.256 1.2.3.4/33 1.2.3.4/ 1.2.3.4/2/2 a.b.c.d 1..2.3 12:30:00", "-9"},
      {"2001:db8:::1 2001:db8::/129 1:2:3:4:5:6:7:8:9 ::1.2.3", "-4"},
  });
}

TEST(ExtractNetworks, RejectsWhatWouldCutTheMachineOff) {
  Check({
      {"10.1.2.0/24 192.168.0.0/24 127.0.0.1 0.0.0.0/0 224.0.0.1 8.0.0.0/8", "-6"},
      {"8.0.0.0/9 100.63.255.0/24", "8.0.0.0/9 100.63.255.0/24 "},
      {"100.64.0.0/24 100.127.255.255 0.1.2.3 169.254.1.1 255.255.255.255 172.16.0.0/12", "-6"},
      {"100.128.0.0 172.15.0.0/16 172.32.0.0/11 223.255.255.255 169.253.255.255 11.0.0.0",
       "100.128.0.0 172.15.0.0/16 172.32.0.0/11 223.255.255.255 169.253.255.255 11.0.0.0 "},
      // A range that only reaches into a reserved one.
      {"172.0.0.0/11 192.128.0.0/9 169.128.0.0/9 11.255.255.255/9", "11.255.255.255/9 -3"},
      {"2001:db8::/32 2001::/16 fe00::1 fec0::1 fbff::/16 ::1:0:0 ::ffff:0",
       "2001:db8::/32 2001::/16 fe00::1 fec0::1 fbff::/16 ::1:0:0 ::ffff:0 "},
      {"2001::/15 fe80::/64 FD00::/8 ff02::1 ::1 ::ffff:1.2.3.4", "-6"},
      // What the host bits hide: these hold ::1 and the mapped addresses all the same.
      {"0:0:1::/16 ::1:0:0/80 ::ffc0:0:0/90 1::/16 0:0:1::/48", "1::/16 0:0:1::/48 -3"},
      {":: ::/64 fc00::1 febf::1 ::ff 0:0:1::ffff:1.2.3.4", "-6"},
  });
}

TEST(ExtractNetworks, KeepsEachTextOnceWhereItStoodFirst) {
  Check({
      {"1.2.3.4/32 1.2.3.4 5.6.7.8 1.2.3.4 1.2.3.4/32", "1.2.3.4/32 1.2.3.4 5.6.7.8 "},
      {"2001:DB8::/32 2001:db8::/32", "2001:DB8::/32 2001:db8::/32 "},
      {"10.0.0.1 10.0.0.1", "-2"},
  });
}

// The most memory that this process has had, in KiB.
long PeakMemory() {
  rusage usage{};
  EXPECT_EQ(getrusage(RUSAGE_SELF, &usage), 0);
  return usage.ru_maxrss;
}

// A run as long as a whole feed is looked at once and never copied. A scan that began anew at each
// of its bytes would not come to an end here.
TEST(ExtractNetworks, TakesEndlessRunsInOnePassAndNoMemory) {
  constexpr std::size_t kSize = 0x1000000;
  const std::string addresses(kSize, ':');
  const std::string word = addresses + "g";
  const std::string comment(kSize, ';');
  const std::string beside = "1.2.3.4 " + std::string(kSize, 'x') + " 5.6.7.8";
  const long before = PeakMemory();
  Check({{addresses, "-1"}, {word, ""}, {comment, ""}, {beside, "1.2.3.4 5.6.7.8 "}});
  EXPECT_LT(PeakMemory() - before, static_cast<long>(kSize / 1024));
}

}  // namespace
}  // namespace kestrelon

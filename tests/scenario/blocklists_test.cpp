// Networks that nothing may reach, from the feed to the verdict.
#include <chrono>
#include <thread>

#include "base/text.h"
#include "blocklists/blocklist_catalog.h"
#include "blocklists/refresh_blocklists.h"
#include "core/core_loop.h"
#include "core/core_state.h"
#include "tests/scenario/client.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

constexpr std::uint64_t kDayMs = 24ULL * 3600 * 1000;

// As the feed has them, with what a poisoned one would hold.
constexpr const char* kFeedV4 = R"({"cidr":"198.51.100.0/24","sblid":"SBL1","rir":"arin"}
{"cidr":"203.0.113.0/24","sblid":"SBL2","rir":"apnic"}
{"cidr":"1.10.16.0/20","sblid":"SBL3","rir":"apnic"}
{"cidr":"1.19.0.0/16","sblid":"SBL4","rir":"apnic"}
{"cidr":"2.56.192.0/22","sblid":"SBL5","rir":"ripencc"}
{"cidr":"10.0.0.0/16","sblid":"SBL6"} {"cidr":"192.168.1.0/24"} {"cidr":"127.0.0.1"}
{"cidr":"8.0.0.0/8","sblid":"SBL7"} {"cidr":"0.0.0.0/0"} {"cidr":"224.0.0.251"}
{"type":"metadata","timestamp":1700000000,"size":1000,"records":5}
)";
constexpr const char* kFeedV6 = R"({"cidr":"2001:db8:bad::/48","sblid":"SBL8"}
{"cidr":"2a06:e480::/29"} {"cidr":"2a09:f802::/32"} {"cidr":"2a0a:b180::/29"} {"cidr":"2803:5380::/32"}
{"cidr":"::/0"} {"cidr":"fe80::/10"} {"cidr":"::1"} {"cidr":"::ffff:203.0.113.9"} {"cidr":"fd00::/8"}
)";

class Blocklists : public Scenario {
 protected:
  Blocklists() {
    config = ConfigOf({Allowed(kTool)});
    config.apps[0].inbound = true;
    config.blocklists = {L"drop"};
  }

  void Serve(const std::string& v4, const std::string& v6 = kFeedV6) {
    const std::vector<std::wstring>& urls = BlocklistCatalog()[0].urls;
    world.machine().http.Serve(urls[0], {.body = v4});
    world.machine().http.Serve(urls[1], {.body = v6});
  }

  // A pass in which a refresh may start, and the pass behind its end. How often it was applied.
  std::uint32_t PassesApply() {
    const std::uint32_t before = Core.ApplyCount;
    LoopPass();
    while (BlocklistRefreshRunning()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    LoopPass();
    return Core.ApplyCount - before;
  }

  void ExpectListed(bool listed) {
    for (const wchar_t* remote : {L"203.0.113.200", L"198.51.100.1", L"2001:db8:bad::7"}) {
      EXPECT_NE(world.Passes(Out(kTool, remote, 443)), listed) << Utf8FromWide(remote);
      EXPECT_NE(world.Passes(In(kTool, remote, 8080)), listed) << Utf8FromWide(remote);
    }
    for (const wchar_t* remote : {L"10.0.0.1", L"192.168.1.7", L"8.8.8.8", L"203.0.114.1",
                                  L"2001:db8:1::1", L"fe80::1", L"fd00::1"}) {
      EXPECT_TRUE(world.Passes(Out(kTool, remote, 443))) << "poisoned: " << Utf8FromWide(remote);
    }
  }

  Config config;
};

TEST_F(Blocklists, AListedNetworkIsUnreachableBothWaysAndOnlyRealChangesAreApplied) {
  Serve(kFeedV4);
  ASSERT_TRUE(world.StartWith(config));
  EXPECT_TRUE(world.Passes(Out(kService, L"192.0.2.1", 443))) << "the way out to the feed";
  EXPECT_FALSE(world.Passes(Out(kService, L"192.0.2.1", 80)));
  ExpectListed(false);
  EXPECT_EQ(PassesApply(), 1U);
  ExpectListed(true);

  world.machine().clock.Advance(kDayMs + 1);
  EXPECT_EQ(PassesApply(), 0U) << "the same list";
  EXPECT_EQ(world.machine().http.Requests().size(), 4U);

  world.machine().clock.Advance(kDayMs + 1);
  Serve(std::string(kFeedV4) + "{\"cidr\":\"8.8.8.0/24\"}\n");
  EXPECT_EQ(PassesApply(), 1U) << "one network more";
  EXPECT_FALSE(world.Passes(Out(kTool, L"8.8.8.8", 443)));
}

TEST_F(Blocklists, TheInstalledCopyServesUntilADownloadAndAClientMayAskForOne) {
  world.InstallBlocklist(L"203.0.113.0/24 198.51.100.0/24 2001:db8:bad::/48");
  config.blocklists_auto_update = false;
  ASSERT_TRUE(world.StartWith(config));
  ExpectListed(true);
  EXPECT_EQ(PassesApply(), 0U);
  EXPECT_TRUE(world.machine().http.Requests().empty()) << "nobody asked for it";

  Serve(kFeedV4);
  Client client;
  EXPECT_EQ(client.Command("update_blocklists").Dump(false), R"({"ok":true})");
  EXPECT_EQ(PassesApply(), 1U);
  EXPECT_FALSE(world.Passes(Out(kTool, L"1.19.0.1", 443)));
}

TEST_F(Blocklists, TheUsersOwnNetworksAreTakenAtTheirWord) {
  config.blocklists.clear();
  config.custom_blocklist = L"$dns; 203.0.113.0/24 2001:db8:bad::/48\r\n,10.1.0.0-10.1.0.9, ;";
  ASSERT_TRUE(world.StartWith(config));
  EXPECT_FALSE(world.Passes(Out(kTool, L"203.0.113.5", 443)));
  EXPECT_FALSE(world.Passes(In(kTool, L"2001:db8:bad::5", 8080)));
  EXPECT_FALSE(world.Passes(Out(kTool, L"10.1.0.9", 443)));
  config.custom_blocklist = L"$dns";
  EXPECT_TRUE(world.Set(config).Get("ok").boolean());
  EXPECT_TRUE(world.Passes(Out(kTool, L"203.0.113.5", 443)))
      << "a word without an address must not mean every address";
}

}  // namespace
}  // namespace kestrelon::test

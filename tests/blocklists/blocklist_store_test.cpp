// The lists' files, what they become in memory, and the rules made of them.
#include "blocklists/blocklist_store.h"

#include <gtest/gtest.h>

#include "base/format.h"
#include "blocklists/blocklist_rules.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

const std::wstring kCache = L"C:\\ProgramData\\Kestrelon\\blocklists\\drop.txt";
const std::wstring kInstalled = L"C:\\Program Files\\Kestrelon\\blocklists\\";
constexpr std::size_t kFileTooLarge = 0x1000000;

class BlocklistTest : public testing::Test {
 protected:
  BlocklistTest() { machine.files.MakeDirectories(L"C:\\ProgramData\\Kestrelon"); }

  void PutInstalled() {
    machine.files.Write(kInstalled + L"drop_v4.json", R"({"cidr":"5.6.7.0/24"} ; no end of line)");
    machine.files.SetWriteTime(kInstalled + L"drop_v4.json", 3000);
    machine.files.Write(kInstalled + L"drop_v6.json", R"({"cidr":"2001:db8::/32"})");
    machine.files.SetWriteTime(kInstalled + L"drop_v6.json", 2000);
  }

  // What the status says after a start.
  std::string Loaded() {
    LoadBlocklists();
    return BlocklistStatus().Dump(false);
  }

  static void SetEntries(std::size_t count) {
    const GuardLock lock(BlocklistGuard);
    BlocklistState& state = BlocklistStates[L"drop"];
    state.entries.clear();
    for (std::size_t i = 0; i < count; ++i) state.entries.push_back(Format(L"1.2.3.%zu", i));
  }

  static std::vector<RuleEntry> Rules(const std::vector<std::wstring>& ids, bool auto_update,
                                      const std::wstring& custom = {}) {
    Config config;
    config.blocklists = ids;
    config.blocklists_auto_update = auto_update;
    config.custom_blocklist = custom;
    std::vector<RuleEntry> rules;
    BlocklistRules(config, rules);
    return rules;
  }

  static RuleEntry BlockRule(const std::wstring& list, const std::wstring& remote) {
    RuleEntry rule;
    rule.name = L"Blocklist: " + list;
    rule.allow = false;
    rule.direction = kDirectionBoth;
    rule.remote = remote;
    return rule;
  }

  simulation::Machine& machine = simulation::TheMachine();
  const BlocklistRow& row = BlocklistCatalog().front();
};

TEST_F(BlocklistTest, ReadsBackTheCacheItWrites) {
  BlocklistState written;
  written.entries = {L"9.9.9.0/24", L"2001:db8::/32", L"1.2.3.4"};
  written.updated = 133000000000000000;
  const std::string text = BlocklistCacheText(row, written);
  EXPECT_EQ(text.substr(0, text.find("# source")), "# Kestrelon blocklist drop\r\n");
  EXPECT_NE(text.find("/drop/drop_v4.json\r\n# source: https://"), std::string::npos);
  EXPECT_TRUE(
      text.ends_with("/drop/drop_v6.json\r\n# updated: 133000000000000000\r\n"
                     "9.9.9.0/24\r\n2001:db8::/32\r\n1.2.3.4\r\n"));
  machine.files.Write(BlocklistCachePath(row), text);
  BlocklistState read;
  ASSERT_TRUE(LoadCachedBlocklist(row, read));
  EXPECT_EQ(read.entries, written.entries);
  EXPECT_EQ(read.updated, written.updated);
  EXPECT_EQ(read.source, L"download");
}

TEST_F(BlocklistTest, TakesTheCacheBeforeTheInstalledCopy) {
  PutInstalled();
  const std::string bundled = R"([{"id":"drop","entries":2,"updated":3000,"source":"bundled"}])";
  const std::string cached = R"([{"id":"drop","entries":1,"updated":0,"source":"download"}])";
  const std::string dated = R"([{"id":"drop","entries":1,"updated":77,"source":"download"}])";
  const std::string network = "1.2.3.4";
  const std::pair<std::string, const std::string&> cases[] = {
      {"# updated: 77\r\n1.2.3.4\r\n# updated: 78", dated},
      {network, cached},
      {"# updated: -7\n1.2.3.4", cached},
      {"# updated: 99999999999999999999\n1.2.3.4", cached},
      {"# updated: 9000\r\n10.0.0.1", bundled},
      {"", bundled},
      {network + std::string(kFileTooLarge - network.size(), ' '), bundled},
      {network + std::string(kFileTooLarge - network.size() - 1, ' '), cached},
  };
  for (const auto& [cache, expected] : cases) {
    machine.files.Write(kCache, cache);
    EXPECT_EQ(Loaded(), expected) << cache.substr(0, 40);
  }
  machine.files.Write(kCache, network);
  for (const char* const call : {"OpenFile", "FileSize", "ReadFileBytes"}) {
    machine.faults.FailOnce(call, platform::kAccessDenied);
    EXPECT_EQ(Loaded(), bundled) << call;
  }
}

TEST_F(BlocklistTest, TakesWhatIsThereOfTheInstalledFiles) {
  EXPECT_EQ(Loaded(), R"([{"id":"drop","entries":0,"updated":0,"source":"bundled"}])");
  PutInstalled();
  machine.files.Remove(kInstalled + L"drop_v4.json");
  EXPECT_EQ(Loaded(), R"([{"id":"drop","entries":1,"updated":2000,"source":"bundled"}])");
}

TEST_F(BlocklistTest, BecomesBlockRulesOfBoundedSize) {
  const std::pair<std::size_t, std::size_t> cases[] = {{0, 0}, {1, 1}, {200, 1}, {201, 2}};
  for (const auto& [entries, expected] : cases) {
    SetEntries(entries);
    const std::vector<RuleEntry> rules = Rules({L"other", L"Drop"}, false);
    ASSERT_EQ(rules.size(), expected);
    for (const RuleEntry& rule : rules) {
      EXPECT_EQ(rule, BlockRule(L"Malicious networks (Spamhaus DROP)", rule.remote));
    }
    if (entries != 201) continue;
    EXPECT_TRUE(rules[0].remote.starts_with(L"1.2.3.0, 1.2.3.1, "));
    EXPECT_TRUE(rules[0].remote.ends_with(L"1.2.3.198, 1.2.3.199"));
    EXPECT_EQ(rules[1].remote, L"1.2.3.200");
  }
}

TEST_F(BlocklistTest, MakesRulesOfTheUsersOwnNetworks) {
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {L" 9.9.9.9 8.8.8.8 ,;\r\n 7.7.7.1 - 7.7.7.9\r\n", L"9.9.9.9 8.8.8.8, 7.7.7.1 - 7.7.7.9"},
      {L"10.0.0.1", L"10.0.0.1"},
      {L"$dns, 9.9.9.9", L"9.9.9.9"},
      {L"$dns", L""},
      {L"9.9.9.9, nonsense", L""},
      {L" \r\n", L""},
      {L" , ", L""},
  };
  for (const auto& [custom, remote] : cases) {
    std::vector<RuleEntry> expected;
    if (*remote != 0) expected.push_back(BlockRule(L"Your own malicious networks", remote));
    EXPECT_EQ(Rules({}, true, custom), expected) << testing::PrintToString(custom);
  }
}

TEST_F(BlocklistTest, LetsTheRefreshOutOnlyForAKnownListThatRefreshesItself) {
  RuleEntry rule;
  rule.name = L"Kestrelon blocklist updates";
  rule.protocol = 6;
  rule.remote_ports = L"443";
  rule.app = machine.environment.executable;
  EXPECT_EQ(Rules({L"drop"}, true), std::vector{rule});
  EXPECT_TRUE(Rules({L"drop"}, false).empty());
  EXPECT_TRUE(Rules({L"other"}, true).empty());
  // A rule without an application would be one for every application.
  machine.faults.FailAlways("ExecutableFile", platform::kAccessDenied);
  EXPECT_TRUE(Rules({L"drop"}, true).empty());
}

}  // namespace
}  // namespace kestrelon

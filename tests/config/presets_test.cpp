#include "config/presets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

#include "config/config_file.h"
#include "simulation/machine/sid.h"

namespace kestrelon {
namespace {

constexpr const wchar_t* kSmb = L"Network drives (SMB, local network only)";
constexpr const wchar_t* kLlmnr = L"LLMNR (local name resolution)";
constexpr const wchar_t* kMdns = L"mDNS (local name resolution)";
constexpr const wchar_t* kKernel = L"Windows kernel - local network";

// The rules of the table by their numbers from 1.
std::vector<RuleEntry> Rows(std::size_t first, std::size_t last) {
  std::vector<RuleEntry> rules;
  const std::vector<PresetRule> table = PresetRules();
  for (std::size_t i = first; i <= last; ++i) rules.push_back(table[i - 1].rule);
  return rules;
}

RuleEntry* Find(Config& config, const std::wstring& name) {
  const auto found = std::find_if(config.rules.begin(), config.rules.end(),
                                  [&](const RuleEntry& rule) { return rule.name == name; });
  return found == config.rules.end() ? nullptr : &*found;
}

// The configuration after the upgrade from a generation, which must report a change.
Config Upgraded(std::int32_t generation, std::vector<RuleEntry> rules) {
  Config config;
  config.presets_version = generation;
  config.rules = std::move(rules);
  EXPECT_TRUE(UpgradePresets(config));
  EXPECT_EQ(config.presets_version, 9);
  return config;
}

// The long user texts are derived by Windows from the names of services; so are they here.
TEST(Presets, ServiceSidsAreThoseOfTheirServices) {
  const std::vector<PresetRule> table = PresetRules();
  for (const auto& [row, service] : {std::pair{12, L"IKEEXT"}, std::pair{14, L"SstpSvc"}}) {
    EXPECT_EQ(table[static_cast<std::size_t>(row)].rule.user,
              simulation::SidText(simulation::ServiceSid(service)));
  }
}

TEST(Presets, DefaultConfigurationIsValidAndUpToDate) {
  Config config = DefaultConfig();
  std::vector<std::size_t> on;
  for (std::size_t i = 0; i < config.rules.size(); ++i) {
    if (config.rules[i].enabled) on.push_back(i + 1);
  }
  EXPECT_EQ(on, (std::vector<std::size_t>{1, 2, 3, 4, 5, 9, 10, 12}));
  EXPECT_EQ(config.blocklists, (std::vector<std::wstring>{L"drop"}));
  Config again;
  std::wstring error;
  ASSERT_TRUE(ConfigFromJson(ConfigToJson(config), again, error)) << error;
  EXPECT_EQ(again, config);
  for (const std::int32_t generation : {9, 10}) {
    config.presets_version = again.presets_version = generation;
    EXPECT_FALSE(UpgradePresets(config));
    EXPECT_EQ(again, config);
  }
}

TEST(UpgradePresets, AddsWhatCameSinceTheGeneration) {
  const Config first = Upgraded(0, {});  // nothing of the first generation comes back
  std::vector<RuleEntry> expected = Rows(5, 15);
  expected[12 - 5].enabled = true;  // revocation checks; the downloads were withdrawn again
  EXPECT_EQ(first.rules, expected);
  EXPECT_EQ(first.blocklists, (std::vector<std::wstring>{L"drop"}));

  std::vector<RuleEntry> before = Rows(11, 12);
  before[0].enabled = true;
  const Config last = Upgraded(8, before);
  EXPECT_EQ(last.rules, Rows(11, 15));  // downloads off, revocation checks as they were: off
  EXPECT_TRUE(last.blocklists.empty());
}

TEST(UpgradePresets, ARuleOfTheSameNameStandsForTheRow) {
  RuleEntry own;
  own.name = L"network drives (smb, local network only)";
  own.remote = L"1.2.3.4";
  own.enabled = true;
  const Config config = Upgraded(1, {own});
  EXPECT_EQ(config.rules[0], own);
  EXPECT_EQ(config.rules.size(), 1u + 10u);  // rows 5 to 15 but this one
}

TEST(UpgradePresets, OpenLocalNetworkKeepsLocalNames) {
  // Generation, name of the rule that is there, enabled, allows; whether local names are kept.
  const std::tuple<std::int32_t, const wchar_t*, bool, bool, bool> rows[] = {
      {5, kSmb, true, true, true},   {5, kKernel, true, true, true},
      {5, kSmb, false, true, false}, {5, kSmb, true, false, false},
      {6, kSmb, true, true, false},  {5, L"another rule", true, true, false}};
  for (const auto& [generation, name, enabled, allow, kept] : rows) {
    RuleEntry open;
    open.name = name;
    open.enabled = enabled;
    open.allow = allow;
    Config config = Upgraded(generation, {open, Rows(7, 7)[0]});
    EXPECT_EQ(Find(config, kLlmnr)->enabled, kept) << name;
    const RuleEntry* mdns = Find(config, kMdns);
    ASSERT_EQ(mdns != nullptr, generation < 6);  // it came with the sixth
    if (mdns != nullptr) {
      EXPECT_EQ(mdns->enabled, kept) << name;
    }
  }
}

TEST(UpgradePresets, DropListIsAddedOnce) {
  for (const auto& [generation, id, count] :
       {std::tuple{7, L"DROP", 1u}, std::tuple{7, L"x", 2u}, std::tuple{8, L"x", 1u}}) {
    Config config;
    config.presets_version = generation;
    config.blocklists = {id};
    ASSERT_TRUE(UpgradePresets(config));
    EXPECT_EQ(config.blocklists.size(), count);
  }
}

TEST(UpgradePresets, EarlyRulesAreNarrowedOnlyWhenUntouched) {
  using R = RuleEntry;
  RuleEntry dns = Rows(1, 1)[0];
  dns.remote = L"";
  dns.app = L"c:\\windows\\SYSTEM32\\svchost.exe";
  dns.name = L"dns (windows dns client)";
  RuleEntry smb = Rows(6, 6)[0];
  smb.app = L"";
  EXPECT_EQ(Upgraded(1, {dns}).rules[0].remote, L"$dns");
  EXPECT_EQ(Upgraded(3, {smb}).rules[0].app, L"System");
  const std::pair<RuleEntry, std::vector<void (*)(R&)>> touched[] = {
      {dns,
       {[](R& r) { r.name = L"DNS"; }, [](R& r) { r.remote = L"1.1.1.1"; },
        [](R& r) { r.remote_ports = L"53, 853"; }, [](R& r) { r.app = L"C:\\svchost.exe"; },
        [](R& r) { r.direction = kDirectionBoth; }, [](R& r) { r.allow = false; }}},
      {smb,
       {[](R& r) { r.name = L"SMB"; }, [](R& r) { r.app = L"x"; },
        [](R& r) { r.remote = L"10.0.0.0/8"; }, [](R& r) { r.remote[r.remote.find(L'f')] = L'F'; },
        [](R& r) { r.remote_ports = L"445 "; }, [](R& r) { r.protocol = 0; },
        [](R& r) { r.direction = kDirectionIn; }, [](R& r) { r.allow = false; }}}};
  for (const auto& [early, changes] : touched) {
    for (const auto& change : changes) {
      RuleEntry own = early;
      change(own);
      EXPECT_EQ(Upgraded(1, {own}).rules[0], own) << "change " << &change - changes.data();
    }
  }
}

}  // namespace
}  // namespace kestrelon

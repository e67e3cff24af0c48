#include "filtering/expand_rules.h"

#include <gtest/gtest.h>

namespace kestrelon {
namespace {

using Texts = std::vector<std::wstring>;

TEST(ExpandRules, PutsTheServersInPlaceOfTheirWord) {
  struct Row {
    const wchar_t* remote;
    const wchar_t* servers;
    const wchar_t* expanded;
    bool enabled;
  };
  const Row rows[] = {
      {L"$dns", L"192.0.2.1, 192.0.2.2", L"192.0.2.1, 192.0.2.2", true},
      {L"10.0.0.1;$DNS\t10.0.0.2", L"192.0.2.1", L"10.0.0.1, 192.0.2.1, 10.0.0.2", true},
      {L"$dns,10.0.0.1", L"", L"10.0.0.1", true},
      {L"$dns", L"", L"", false},
      {L"", L"192.0.2.1", L"", true},
      {L"10.0.0.1;10.0.0.2", L"192.0.2.1", L"10.0.0.1;10.0.0.2", true},
  };
  for (const Row& row : rows) {
    Config config;
    config.updates_auto_check = false;
    config.rules.resize(2);
    config.rules[0].name = L"DNS";
    config.rules[0].remote = row.remote;
    config.rules[1] = config.rules[0];
    config.rules[1].enabled = false;
    const Config before = config;
    FilterPlan plan;
    plan.dns_servers = row.servers;
    const Config effective = ExpandRules(config, plan);
    EXPECT_EQ(config, before);
    ASSERT_EQ(effective.rules.size(), 2u);
    EXPECT_EQ(effective.rules[0].remote, row.expanded);
    EXPECT_EQ(effective.rules[0].enabled, row.enabled);
    EXPECT_EQ(effective.rules[1], before.rules[1]) << "a rule that is off stays as it is";
    EXPECT_EQ(plan.warnings,
              row.enabled
                  ? Texts{}
                  : Texts{L"Rule 'DNS' is inactive: no DNS server is configured right now"});
  }
}

}  // namespace
}  // namespace kestrelon

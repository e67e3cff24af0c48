// The operating system's own firewall. Rules that a case adds are not enabled, and gone at its end.
#include "platform/windows_firewall.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using namespace kestrelon::platform;

constexpr const wchar_t* kName = L"Kestrelon contract";
constexpr const wchar_t* kGroup = L"Kestrelon contract's group";

FirewallRuleValues RuleFor(std::int32_t protocol) {
  return {.name = kName,
          .description = L"Of a test",
          .application = L"C:\\Kestrelon contract\\none.exe",
          .protocol = protocol,
          .local_ports = L"53535",
          .remote_addresses = L"LocalSubnet",
          .grouping = kGroup,
          .enabled = false};
}

class FirewallRules : public testing::Test {
 protected:
  FirewallRules() { EXPECT_EQ(OpenFirewallPolicy(policy_), kSuccess); }
  ~FirewallRules() override { EXPECT_EQ(RemoveFirewallRules(policy_, kName), kSuccess); }

  Code Add(std::int32_t protocol) {
    FirewallRule rule;
    EXPECT_EQ(MakeFirewallRule(rule), kSuccess);
    return AddFirewallRule(policy_, rule, RuleFor(protocol));
  }

  std::ptrdiff_t CountListed() {
    std::vector<ListedFirewallRule> rules;
    EXPECT_EQ(ListFirewallRules(policy_, rules), kSuccess);
    return std::count_if(rules.begin(), rules.end(), [](const ListedFirewallRule& rule) {
      return rule.name == kName && rule.grouping == kGroup;
    });
  }

  FirewallPolicy policy_;
};

TEST_F(FirewallRules, OfNoNameAreRemovedAsWell) {
  EXPECT_EQ(RemoveFirewallRules(policy_, kName), kSuccess);
}

TEST_F(FirewallRules, OfOneNameAreListedEachAndRemovedTogether) {
  EXPECT_EQ(Add(17), kSuccess);
  EXPECT_EQ(Add(6), kSuccess);
  EXPECT_EQ(CountListed(), 2);
  EXPECT_EQ(RemoveFirewallRules(policy_, kName), kSuccess);
  EXPECT_EQ(CountListed(), 0);
}

TEST_F(FirewallRules, ThatRefuseAValueAreNotAdded) {
  EXPECT_NE(Add(1), kSuccess) << "a protocol without ports";
  EXPECT_EQ(CountListed(), 0);
}

}  // namespace

// The rules of the operating system's own firewall (Windows Defender Firewall), through its COM
// interfaces. All objects of one policy belong to the thread that opened it, and end before it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/codes.h"
#include "platform/handle.h"

namespace kestrelon::platform {

inline constexpr std::int32_t kFirewallRuleIn = 1;       // NET_FW_RULE_DIR_IN
inline constexpr std::int32_t kFirewallActionAllow = 1;  // NET_FW_ACTION_ALLOW
inline constexpr std::int32_t kFirewallProfilesAll = 0x7FFFFFFF;

// The rules that are in force on this machine.
void CloseFirewallPolicy(std::uintptr_t policy);
using FirewallPolicy = Handle<&CloseFirewallPolicy>;

// Fails where the firewall's service doesn't answer.
[[nodiscard]] Code OpenFirewallPolicy(FirewallPolicy& policy);

// What one rule says, set in this order.
struct FirewallRuleValues {
  std::wstring name;  // need not be unique
  std::wstring description;
  std::wstring application;
  std::int32_t protocol = 0;  // IP protocol number; before the ports, which depend on it
  std::wstring local_ports;
  std::wstring remote_addresses;  // also "LocalSubnet"
  std::int32_t direction = kFirewallRuleIn;
  std::int32_t action = kFirewallActionAllow;
  std::wstring grouping;
  std::int32_t profiles = kFirewallProfilesAll;
  bool enabled = true;
};

// A rule that is part of no policy yet.
void CloseFirewallRule(std::uintptr_t rule);
using FirewallRule = Handle<&CloseFirewallRule>;

[[nodiscard]] Code MakeFirewallRule(const FirewallRuleValues& values, FirewallRule& rule);

[[nodiscard]] Code AddFirewallRule(const FirewallPolicy& policy, const FirewallRule& rule);

// Takes out the rules of a name; a name that no rule has is a success too.
[[nodiscard]] Code RemoveFirewallRules(const FirewallPolicy& policy, const std::wstring& name);

struct ListedFirewallRule {
  std::wstring name;
  std::wstring grouping;
};

// All rules, also those of other software. What of a rule can't be read is empty.
[[nodiscard]] Code ListFirewallRules(const FirewallPolicy& policy,
                                     std::vector<ListedFirewallRule>& rules);

}  // namespace kestrelon::platform

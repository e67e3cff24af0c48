// The rules of the operating system's own firewall (Windows Defender Firewall), through its COM
// interfaces. A policy and its rules are used by the thread that opened it alone, and the rules end
// before it. The calls may wait for the firewall's service.
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

// Fails where the firewall's service doesn't answer. `policy` is changed on success only.
[[nodiscard]] Code OpenFirewallPolicy(FirewallPolicy& policy);

// A rule that says nothing yet.
void CloseFirewallRule(std::uintptr_t rule);
using FirewallRule = Handle<&CloseFirewallRule>;

// `rule` is changed on success only.
[[nodiscard]] Code MakeFirewallRule(FirewallRule& rule);

// What a rule says, set in this order.
struct FirewallRuleValues {
  std::wstring name;  // need not be unique
  std::wstring description;
  std::wstring application;       // full path of the program it is for
  std::int32_t protocol = 0;      // IP protocol number; before the ports, which depend on it
  std::wstring local_ports;       // decimal
  std::wstring remote_addresses;  // also "LocalSubnet"
  std::int32_t direction = kFirewallRuleIn;
  std::int32_t action = kFirewallActionAllow;
  std::wstring grouping;
  std::int32_t profiles = kFirewallProfilesAll;
  bool enabled = true;

  friend bool operator==(const FirewallRuleValues&, const FirewallRuleValues&) = default;
};

// Sets all values of a rule and makes it part of the policy. A rule that refuses a value is not
// added: without it, it would let through more than meant.
[[nodiscard]] Code AddFirewallRule(const FirewallPolicy& policy, const FirewallRule& rule,
                                   const FirewallRuleValues& values);

// Takes out the rules of a name; that no rule has it is success too.
[[nodiscard]] Code RemoveFirewallRules(const FirewallPolicy& policy, const std::wstring& name);

struct ListedFirewallRule {
  std::wstring name;
  std::wstring grouping;
};

// All rules, also those of other software, as far as the platform gives them. What of a rule can't
// be read is empty. `rules` is changed on success only.
[[nodiscard]] Code ListFirewallRules(const FirewallPolicy& policy,
                                     std::vector<ListedFirewallRule>& rules);

}  // namespace kestrelon::platform

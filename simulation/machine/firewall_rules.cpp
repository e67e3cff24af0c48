// The seam's operating system firewall.
#include "platform/windows_firewall.h"
#include "simulation/machine/machine.h"

namespace kestrelon::platform {

using simulation::TheMachine;

void CloseFirewallPolicy(std::uintptr_t policy) {
  TheMachine().windows_firewall.Close(policy);
}

Code OpenFirewallPolicy(FirewallPolicy& policy) {
  if (const Code fault = TheMachine().faults.Next("OpenFirewallPolicy")) return fault;
  std::uintptr_t handle = 0;
  const Code code = TheMachine().windows_firewall.OpenPolicy(handle);
  if (code == kSuccess) policy.Adopt(handle);
  return code;
}

void CloseFirewallRule(std::uintptr_t rule) {
  TheMachine().windows_firewall.Close(rule);
}

Code MakeFirewallRule(FirewallRule& rule) {
  if (const Code fault = TheMachine().faults.Next("MakeFirewallRule")) return fault;
  rule.Adopt(TheMachine().windows_firewall.MakeRule());
  return kSuccess;
}

Code AddFirewallRule(const FirewallPolicy& policy, const FirewallRule& rule,
                     const FirewallRuleValues& values) {
  if (const Code fault = TheMachine().faults.Next("AddFirewallRule")) return fault;
  return TheMachine().windows_firewall.AddRule(policy.handle(), rule.handle(), values);
}

Code RemoveFirewallRules(const FirewallPolicy& policy, const std::wstring& name) {
  if (const Code fault = TheMachine().faults.Next("RemoveFirewallRules")) return fault;
  return TheMachine().windows_firewall.RemoveRules(policy.handle(), name);
}

Code ListFirewallRules(const FirewallPolicy& policy, std::vector<ListedFirewallRule>& rules) {
  if (const Code fault = TheMachine().faults.Next("ListFirewallRules")) return fault;
  return TheMachine().windows_firewall.ListRules(policy.handle(), rules);
}

}  // namespace kestrelon::platform

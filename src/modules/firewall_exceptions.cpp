#include "modules/firewall_exceptions.h"

#include <set>
#include <string>
#include <vector>

#include "platform/windows_firewall.h"

namespace kestrelon {
namespace {

using platform::FirewallPolicy;
using platform::FirewallRule;
using platform::FirewallRuleValues;
using platform::kSuccess;

// In the group of every rule that this product adds, and of no other's: a later run knows its own
// by it.
constexpr const wchar_t* kGroup = L"Kestrelon";
constexpr const wchar_t* kNamePrefix = L"Kestrelon - ";

constexpr std::int32_t kTcp = 6;
constexpr std::int32_t kUdp = 17;

// Modules whose exceptions are there, unless the firewall refused.
std::set<std::wstring> applied_modules GUARDED_BY(ModuleGuard);

std::wstring RuleName(const ModuleManifest& manifest) {
  return kNamePrefix + manifest.name;
}

FirewallRuleValues RuleFor(const ModuleStatus& status, const ModuleNetworkEntry& entry) {
  return {
      .name = RuleName(status.manifest),
      .description = L"Added by Kestrelon while this module is turned on (Kestrelon > Modules).",
      .application = status.path,
      .protocol = entry.protocol == kTcp ? kTcp : kUdp,
      .local_ports = std::to_wstring(entry.port),
      .remote_addresses = L"LocalSubnet",
      .direction = platform::kFirewallRuleIn,
      .action = platform::kFirewallActionAllow,
      .grouping = kGroup,
      .profiles = platform::kFirewallProfilesAll,
      .enabled = true,
  };
}

bool AddExceptions(const FirewallPolicy& policy, const ModuleStatus& status) {
  bool all_added = true;
  for (const ModuleNetworkEntry& entry : status.manifest.network) {
    if (entry.direction == kDirectionOut) continue;
    FirewallRule rule;
    if (platform::MakeFirewallRule(rule) != kSuccess) return false;
    if (platform::AddFirewallRule(policy, rule, RuleFor(status, entry)) != kSuccess) {
      all_added = false;
    }
  }
  return all_added;
}

// One for each rule, so that one of several rules of a name is in it several times.
std::vector<std::wstring> NamesOfGroup(const FirewallPolicy& policy) {
  std::vector<platform::ListedFirewallRule> rules;
  (void)platform::ListFirewallRules(policy, rules);  // none, then
  std::vector<std::wstring> names;
  for (const platform::ListedFirewallRule& rule : rules) {
    if (rule.grouping == kGroup) names.push_back(rule.name);
  }
  return names;
}

int RemoveGroup() {
  FirewallPolicy policy;
  if (platform::OpenFirewallPolicy(policy) != kSuccess) return 0;
  int removed = 0;
  for (const std::wstring& name : NamesOfGroup(policy)) {
    if (platform::RemoveFirewallRules(policy, name) == kSuccess) ++removed;
  }
  return removed;
}

}  // namespace

bool SyncFirewallException(const ModuleStatus& status, bool add) {
  FirewallPolicy policy;
  if (platform::OpenFirewallPolicy(policy) != kSuccess) return false;
  // Also before adding: no rule with older values is left beside the new ones.
  (void)platform::RemoveFirewallRules(policy, RuleName(status.manifest));
  return !add || AddExceptions(policy, status);
}

int RemoveFirewallExceptions() {
  const int removed = RemoveGroup();
  GuardLock lock(ModuleGuard);
  applied_modules.clear();
  return removed;
}

bool FirewallExceptionApplied(const std::wstring& module_id) {
  GuardLock lock(ModuleGuard);
  return applied_modules.contains(module_id);
}

void NoteFirewallException(const std::wstring& module_id, bool applied) {
  GuardLock lock(ModuleGuard);
  if (applied) {
    applied_modules.insert(module_id);
  } else {
    applied_modules.erase(module_id);
  }
}

}  // namespace kestrelon

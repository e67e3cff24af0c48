#include "filtering/expand_rules.h"

#include <algorithm>
#include <iterator>

#include "base/format.h"
#include "blocklists/blocklist_rules.h"
#include "config/address_spec.h"
#include "modules/module_rules.h"
#include "updates/update_traffic.h"

namespace kestrelon {

Config ExpandRules(const Config& config, FilterPlan& plan) {
  // The user's rules stand first, those that the system makes itself behind them. Precedence comes
  // from the weights of the filters, not from this order.
  Config effective = config;
  for (RuleEntry& rule : effective.rules) {
    if (!rule.enabled || !SpecHasDns(rule.remote)) continue;
    rule.remote = SpecReplaceDns(rule.remote, plan.dns_servers);
    if (!rule.remote.empty()) continue;
    // An empty remote would mean any address.
    rule.enabled = false;
    plan.warnings.push_back(
        Format(L"Rule '%s' is inactive: no DNS server is configured right now", rule.name));
  }
  if (config.enabled) BlocklistRules(config, effective.rules);
  plan.update_traffic = UpdateTrafficRules(config, effective.rules);
  std::vector<RuleEntry> module_rules;
  CompileModuleRules(config, plan.warnings, plan.fingerprint, module_rules);
  if (config.enabled) std::ranges::move(module_rules, std::back_inserter(effective.rules));
  return effective;
}

}  // namespace kestrelon

#include "filtering/apply_config.h"

#include <string_view>
#include <unordered_set>
#include <utility>

#include "core/service_log.h"
#include "filtering/apply_filters.h"
#include "filtering/compile_apps.h"
#include "filtering/dns_servers.h"
#include "filtering/expand_rules.h"
#include "filtering/filter_engine.h"
#include "identity/pinned_files.h"

namespace kestrelon {
namespace {

std::wstring installed_fingerprint GUARDED_BY(ConfigGuard);
std::vector<std::wstring> installed_warnings GUARDED_BY(ConfigGuard);

// A warning that stands for many passes is logged once, when it first appears.
void ReplaceWarnings(std::vector<std::wstring> warnings) REQUIRES(ConfigGuard) {
  const std::unordered_set<std::wstring_view> known(installed_warnings.begin(),
                                                    installed_warnings.end());
  for (const std::wstring& warning : warnings) {
    if (!known.contains(warning)) LogService(L"Warning: %s", warning);
  }
  installed_warnings = std::move(warnings);
}

}  // namespace

bool ApplyConfig(Config& config, std::wstring& error, bool& config_changed) {
  FilterPlan plan;
  CompileApps(config, plan);
  plan.dns_servers = CollectDnsServers();
  plan.fingerprint += L"|dns:" + plan.dns_servers;
  const Config effective = ExpandRules(config, plan);
  config_changed = plan.config_changed;
  if (!ApplyFilters(TheEngine, effective, plan, error)) return false;
  installed_fingerprint = std::move(plan.fingerprint);
  if (!config.enabled) plan.entries.clear();  // none of them is permitted by a filter
  SnapshotPinned(plan.entries);
  ReplaceWarnings(std::move(plan.warnings));
  return true;
}

const std::wstring& InstalledFingerprint() {
  return installed_fingerprint;
}

const std::vector<std::wstring>& InstalledWarnings() {
  return installed_warnings;
}

}  // namespace kestrelon

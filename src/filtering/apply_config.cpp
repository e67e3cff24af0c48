#include "filtering/apply_config.h"

#include <string_view>
#include <unordered_set>
#include <utility>

#include "core/service_log.h"
#include "events/allowed_logging.h"
#include "filtering/apply_filters.h"
#include "filtering/boot_filters.h"
#include "filtering/changed_files.h"
#include "filtering/compile_apps.h"
#include "filtering/dns_servers.h"
#include "filtering/expand_rules.h"
#include "filtering/filter_engine.h"
#include "identity/file_watch.h"
#include "identity/paths.h"
#include "identity/pinned_files.h"
#include "modules/known_modules.h"
#include "modules/module_rules.h"
#include "updates/update_state.h"

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

// What the configuration means on the machine as it is now.
FilterPlan Compile(Config& config) REQUIRES(ConfigGuard) {
  FilterPlan plan;
  CompileApps(config, plan);
  plan.dns_servers = CollectDnsServers();
  plan.fingerprint += L"|dns:" + plan.dns_servers;
  return plan;
}

// The files whose change matters: those that are permitted, those held back until they are again
// what was allowed, and those of the modules that are on.
std::vector<std::wstring> FilesToWatch(const Config& config,
                                       const std::vector<PlanEntry>& entries) {
  std::vector<std::wstring> files;
  if (!config.enabled) return files;  // none of them is permitted by a filter
  for (const PlanEntry& entry : entries) {
    if ((entry.allow || entry.integrity_block) && entry.package_sid.empty()) {
      files.push_back(entry.path);
    }
  }
  for (const ModuleEntry& entry : config.modules) {
    const KnownModule* const known = entry.enabled ? FindKnownModule(entry.id) : nullptr;
    if (known != nullptr && IsExistingFile(ModulePath(*known))) files.push_back(ModulePath(*known));
  }
  return files;
}

}  // namespace

bool ApplyConfig(Config& config, std::wstring& error, bool& config_changed) {
  // A transfer that begins meanwhile waits for these filters.
  const bool update_traffic = UpdateSignals.UpdateRuleInstalled.exchange(false);
  FilterPlan plan = Compile(config);
  const Config effective = ExpandRules(config, plan);
  config_changed = plan.config_changed;
  if (!ApplyFilters(TheEngine, effective, plan, error)) {
    UpdateSignals.UpdateRuleInstalled = update_traffic;
    return false;
  }
  installed_fingerprint = std::move(plan.fingerprint);
  UpdateSignals.UpdateRuleInstalled = plan.update_traffic;
  SnapshotPinned(config.enabled ? plan.entries : std::vector<PlanEntry>());
  RefreshAllowedSelection(config);
  if (!Core.Stopping) SyncFileWatch(FilesToWatch(config, plan.entries), &Core.WakeEvent);
  BlockFilesChangedMeanwhile();
  if (Core.ChangedFilePending) Core.WakeEvent.Set();
  ApplyBootFilters(config, plan.warnings);
  ReplaceWarnings(std::move(plan.warnings));
  return true;
}

bool IdentitiesDrifted(Config config) {
  FilterPlan plan = Compile(config);
  std::vector<RuleEntry> unused;
  CompileModuleRules(config, plan.warnings, plan.fingerprint, unused);
  return plan.config_changed || plan.fingerprint != installed_fingerprint;
}

const std::vector<std::wstring>& InstalledWarnings() {
  return installed_warnings;
}

}  // namespace kestrelon

#include "filtering/apply_filters.h"

#include "core/core_state.h"
#include "filtering/add_filters.h"
#include "filtering/build_filters.h"
#include "filtering/filter_transaction.h"
#include "filtering/read_filters.h"

namespace kestrelon {
namespace {

bool AddConfiguredFilters(FilterEngine& engine, const Config& config, FilterPlan& plan,
                          FilterTagTable& tags, std::wstring& error) REQUIRES(engine.EngineGuard) {
  AddContext context{engine.handle, engine.added_keys, tags, error};
  return BuildFilters(config, plan.entries, plan.warnings, AddingSink(context));
}

// The transaction: the installed filters out, the configured ones in.
bool ReplaceFilters(FilterEngine& engine, const std::vector<Guid>& installed, const Config& config,
                    FilterPlan& plan, FilterTagTable& tags, std::wstring& error)
    REQUIRES(engine.EngineGuard) {
  FilterTransaction transaction(engine.handle);
  if (!transaction.Begin(error) || !transaction.DeleteFilters(installed, error)) return false;
  if (!RestoreSublayerWeight(engine, error)) return false;
  engine.added_keys.clear();
  engine.added_keys.reserve(installed.size());  // most applications change little
  tags.reserve(installed.size());
  if (config.enabled && !AddConfiguredFilters(engine, config, plan, tags, error)) return false;
  return transaction.Commit(error);
}

// What else the engine shows is left out of the record, so that the audit finds it.
void RecordAddedFilters(FilterEngine& engine, std::vector<std::wstring>& warnings)
    REQUIRES(engine.EngineGuard) {
  std::wstring error;
  if (!ReadRecord(engine, engine.added_keys, engine.FilterRecord, error)) {
    warnings.push_back(L"Cannot record the applied filters for integrity checks: " + error);
  }
  std::vector<Guid>().swap(engine.added_keys);  // half a megabyte, not needed again
}

}  // namespace

bool ApplyFilters(FilterEngine& engine, const Config& config, FilterPlan& plan,
                  std::wstring& error) {
  GuardLock lock(engine.EngineGuard);
  if (!RequireSession(engine, error)) return false;
  if (!EnsureProviderAndSublayer(engine, error)) return false;
  std::vector<Guid> installed;
  if (!ReadFilters(engine, installed, error)) return false;
  UnlockForRemoval(engine, installed, false);
  FilterTagTable tags;
  if (!ReplaceFilters(engine, installed, config, plan, tags, error)) return false;
  RecordAddedFilters(engine, plan.warnings);
  Core.ChangedFilePending = false;
  GuardLock record_lock(engine.RecordGuard);
  engine.FilterTags.swap(tags);
  return true;
}

}  // namespace kestrelon

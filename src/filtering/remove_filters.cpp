#include "filtering/remove_filters.h"

#include "core/error_text.h"
#include "filtering/filter_engine.h"
#include "filtering/filter_keys.h"
#include "filtering/filter_transaction.h"
#include "filtering/read_filters.h"

namespace kestrelon {
namespace {

// The sublayer names the provider, so it goes first.
bool DeleteProviderAndSublayer(platform::EngineHandle engine, std::wstring& error) {
  platform::Code code = platform::DeleteSublayer(engine, SubLayerKey);
  if (code != platform::kSuccess && code != platform::kSublayerNotFound) {
    error = L"FwpmSubLayerDeleteByKey0: " + ErrorText(code);
    return false;
  }
  code = platform::DeleteProvider(engine, ProviderKey);
  if (code != platform::kSuccess && code != platform::kProviderNotFound) {
    error = L"FwpmProviderDeleteByKey0: " + ErrorText(code);
    return false;
  }
  return true;
}

bool DeleteEverything(FilterEngine& engine, bool with_provider_and_sublayer, std::wstring& error)
    EXCLUDES(engine.EngineGuard) {
  GuardLock lock(engine.EngineGuard);
  std::vector<Guid> keys;
  if (!ReadFilters(engine, keys, error)) return false;
  UnlockForRemoval(engine, keys, with_provider_and_sublayer);
  keys.insert(keys.end(), BootFilterKeys.begin(), BootFilterKeys.end());
  FilterTransaction transaction(engine.handle);
  if (!transaction.Begin(error) || !transaction.DeleteFilters(keys, error)) return false;
  if (with_provider_and_sublayer && !DeleteProviderAndSublayer(engine.handle, error)) return false;
  if (!transaction.Commit(error)) return false;
  engine.FilterRecord.clear();
  GuardLock record_lock(engine.RecordGuard);
  engine.FilterTags.clear();
  return true;
}

}  // namespace

bool RemoveAllFilters(bool with_provider_and_sublayer, std::wstring& error) {
  FilterEngine engine;
  if (!OpenEngine(engine, error)) return false;
  const bool removed = DeleteEverything(engine, with_provider_and_sublayer, error);
  CloseEngine(engine);
  return removed;
}

}  // namespace kestrelon

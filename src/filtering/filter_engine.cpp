#include "filtering/filter_engine.h"

#include <map>
#include <mutex>

#include "core/error_text.h"
#include "core/service_log.h"
#include "filtering/filter_keys.h"
#include "filtering/lock_descriptors.h"
#include "platform/security.h"

namespace kestrelon {
namespace {

// Bounds the wait for another user of the engine who holds the transaction lock.
constexpr std::uint32_t kTransactionWaitMs = 15000;

std::once_flag standing_read;
bool local_system = false;

// What the last attempt to lock each object gave, so that the log hears of changes only.
Guard LockOutcomeGuard("LockOutcomeGuard", GuardRank::kLeaf);
std::map<std::wstring, platform::Code> lock_outcomes GUARDED_BY(LockOutcomeGuard);

// Whether the process runs as LocalSystem; a failure to find out counts as no.
bool IsLocalSystem() {
  std::call_once(standing_read, [] {
    bool answer = false;
    local_system = platform::IsProcessLocalSystem(answer) == platform::kSuccess && answer;
  });
  return local_system;
}

// Whether the outcome of locking this object is another than at the last attempt; keeps it.
bool LockOutcomeIsNew(const std::wstring& object, platform::Code code) {
  GuardLock lock(LockOutcomeGuard);
  const auto [last, first] = lock_outcomes.try_emplace(object, code);
  if (!first && last->second == code) return false;
  last->second = code;
  return true;
}

void ReportLockOutcome(const std::wstring& object, platform::Code code) {
  if (!LockOutcomeIsNew(object, code)) return;
  if (code == platform::kSuccess) {
    LogService(L"WFP %s locked (administrators may not delete or change it)", object);
  } else {
    LogService(L"Locking the WFP %s failed: %s", object, ErrorText(code));
  }
}

platform::Provider OwnProvider() {
  platform::Provider provider;
  provider.key = ProviderKey;
  provider.name = L"Kestrelon";
  provider.description = L"Kestrelon strict whitelist firewall";
  provider.flags = platform::kProviderPersistent;
  return provider;
}

platform::Sublayer OwnSublayer() {
  platform::Sublayer sublayer;
  sublayer.key = SubLayerKey;
  sublayer.name = L"Kestrelon";
  sublayer.description = L"Kestrelon filters";
  sublayer.flags = platform::kSublayerPersistent;
  sublayer.provider = ProviderKey;
  sublayer.weight = kSublayerWeight;
  return sublayer;
}

bool EnsureProvider(platform::EngineHandle engine, std::wstring& error) {
  const platform::Code code = platform::AddProvider(engine, OwnProvider(), LockDescriptor());
  if (code == platform::kSuccess) return true;
  if (code != platform::kObjectExists) {
    error = L"FwpmProviderAdd0: " + ErrorText(code);
    return false;
  }
  if (IsLocalSystem()) {
    ReportLockOutcome(L"provider",
                      platform::SetProviderDacl(engine, ProviderKey, LockDescriptor()));
  }
  return true;
}

// Adds the sublayer. An administrator may not link to the locked provider, and whether he is told
// that first or that the sublayer exists is not documented: one that is there is there.
platform::Code AddOwnSublayer(platform::EngineHandle engine) {
  const platform::Code code = platform::AddSublayer(engine, OwnSublayer(), LockDescriptor());
  platform::Sublayer present;
  if (code == platform::kSuccess || code == platform::kObjectExists || IsLocalSystem()) return code;
  const bool exists = platform::GetSublayer(engine, SubLayerKey, present) == platform::kSuccess;
  return exists ? platform::kObjectExists : code;
}

bool EnsureSublayer(platform::EngineHandle engine, std::wstring& error) {
  const platform::Code code = AddOwnSublayer(engine);
  if (code == platform::kSuccess) return true;
  if (code != platform::kObjectExists) {
    error = L"FwpmSubLayerAdd0: " + ErrorText(code);
    return false;
  }
  if (IsLocalSystem()) {
    ReportLockOutcome(L"sublayer",
                      platform::SetSublayerDacl(engine, SubLayerKey, LockDescriptor()));
  }
  return true;
}

}  // namespace

FilterEngine TheEngine;

bool OpenEngine(FilterEngine& engine, std::wstring& error) {
  GuardLock lock(engine.EngineGuard);
  if (engine.handle != 0) return true;
  platform::SessionOptions options;
  options.name = L"Kestrelon";
  options.transaction_wait_ms = kTransactionWaitMs;
  platform::EngineHandle handle = 0;
  const platform::Code code = platform::OpenEngineSession(options, handle);
  if (code != platform::kSuccess) {
    error = L"FwpmEngineOpen0: " + ErrorText(code);
    return false;
  }
  engine.handle = handle;
  if (!EnsureProviderAndSublayer(engine, error)) {
    platform::CloseEngineSession(handle);
    engine.handle = 0;
    return false;
  }
  if (engine.change_event == nullptr) return true;
  // Without the subscription a change is found by the timed audit.
  (void)platform::SubscribeFilterChanges(
      handle, platform::kNotifyOnAdd | platform::kNotifyOnDelete,
      [](void* event) { static_cast<platform::Event*>(event)->Set(); }, engine.change_event,
      engine.change_subscription);
  return true;
}

void CloseEngine(FilterEngine& engine) {
  GuardLock lock(engine.EngineGuard);
  if (engine.handle == 0) return;
  if (engine.change_subscription != 0) {
    platform::UnsubscribeFilterChanges(engine.handle, engine.change_subscription);
    engine.change_subscription = 0;
  }
  platform::CloseEngineSession(engine.handle);
  engine.handle = 0;
}

bool EngineIsOpen(FilterEngine& engine) {
  GuardLock lock(engine.EngineGuard);
  return engine.handle != 0;
}

bool RequireSession(const FilterEngine& engine, std::wstring& error) {
  if (engine.handle != 0) return true;
  error = L"WFP engine is not open";
  return false;
}

std::size_t FilterCount(FilterEngine& engine) {
  GuardLock lock(engine.EngineGuard);
  return engine.FilterRecord.size();
}

bool EnsureProviderAndSublayer(FilterEngine& engine, std::wstring& error) {
  return EnsureProvider(engine.handle, error) && EnsureSublayer(engine.handle, error);
}

bool RestoreSublayerWeight(FilterEngine& engine, std::wstring& error) {
  platform::Sublayer sublayer;
  if (platform::GetSublayer(engine.handle, SubLayerKey, sublayer) != platform::kSuccess ||
      sublayer.weight == kSublayerWeight) {
    return true;
  }
  for (const Guid& key : BootFilterKeys) (void)platform::DeleteFilter(engine.handle, key);
  if (platform::DeleteSublayer(engine.handle, SubLayerKey) != platform::kSuccess) return true;
  const platform::Code code = platform::AddSublayer(engine.handle, OwnSublayer(), LockDescriptor());
  if (code == platform::kSuccess) return true;
  error = L"FwpmSubLayerAdd0: " + ErrorText(code);
  return false;
}

void UnlockForRemoval(FilterEngine& engine, const std::vector<Guid>& keys,
                      bool with_provider_and_sublayer) {
  if (IsLocalSystem()) return;
  const platform::SecurityDescriptor& descriptor = UnlockDescriptor();
  for (const Guid& key : keys) platform::SetFilterDacl(engine.handle, key, descriptor);
  if (!with_provider_and_sublayer) return;
  platform::SetSublayerDacl(engine.handle, SubLayerKey, descriptor);
  platform::SetProviderDacl(engine.handle, ProviderKey, descriptor);
}

}  // namespace kestrelon

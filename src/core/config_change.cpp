#include "core/config_change.h"

#include <utility>

#include "config/atomic_write.h"
#include "config/config_file.h"
#include "config/config_store.h"
#include "control/reply.h"
#include "control/subscribers.h"
#include "core/service_log.h"
#include "core/status.h"
#include "filtering/apply_config.h"
#include "filtering/filter_engine.h"
#include "platform/clock.h"
#include "platform/files.h"

namespace kestrelon {
namespace {

// The engine's service may still be coming up when the machine boots.
constexpr int kOpenTries = 60;
constexpr std::uint32_t kOpenSpacingMs = 1000;

// Whether compiling has written into the live configuration what no file holds yet. The next
// compile finds it known and says nothing of it, so an application that fails must not lose it: a
// program would be learnt anew at the next start, whatever it is by then.
bool live_config_unsaved GUARDED_BY(ConfigGuard) = false;

// Whether the disk takes the configuration; leaves nothing behind.
bool DiskTakes(const Config& config, std::wstring& error) {
  const std::wstring path = ConfigPath() + L".new";
  if (!AtomicWriteText(path, ConfigText(config), error)) return false;
  (void)platform::RemoveFile(path);
  return true;
}

Config BlockAllConfig(bool allow_loopback) {
  Config config;  // the record's defaults hold everything on and every list empty
  config.allow_loopback = allow_loopback;
  return config;
}

// Installs the live configuration, and saves what compiling it learnt once it is in force.
bool ApplyLiveConfig(std::wstring& error) REQUIRES(ConfigGuard) {
  bool config_changed = false;
  const bool applied = ApplyConfig(Core.CurrentConfig, error, config_changed);
  live_config_unsaved = live_config_unsaved || config_changed;
  if (!applied) return false;
  if (live_config_unsaved) {
    live_config_unsaved = !SaveCurrentConfig();
    PublishConfigEvent("config_changed");
  }
  return true;
}

void RestoreFilters(Config snapshot) REQUIRES(ConfigGuard) {
  std::wstring error;
  bool config_changed = false;
  if (ApplyConfig(snapshot, error, config_changed)) return;
  LogService(L"Restoring the previous filters failed: %s", error);
  // The loop is to retry the live configuration: whatever is in force now, it is not that.
  Core.LastError = error;
  BlockAllFallback();
}

// The accepted configuration becomes the live one; accepting one ends every fallback.
void MakeLive(Config config) REQUIRES(ConfigGuard) {
  const bool was_enabled = Core.CurrentConfig.enabled;
  Core.CurrentConfig = std::move(config);
  live_config_unsaved = false;
  Core.LastError.clear();
  Core.FallbackKind.clear();
  Core.FallbackCause.clear();
  Core.FallbackFrom.clear();
  // The loop sleeps by the configuration before, and this one may hold an earlier end of something.
  Core.WakeEvent.Set();
  const Config& live = Core.CurrentConfig;
  if (live.enabled != was_enabled) {
    LogService(L"Protection turned %s", live.enabled ? L"ON" : L"OFF");
  }
  LogService(L"Configuration updated: %zu apps, %zu rules, %zu filters", live.apps.size(),
             live.rules.size(), FilterCount(TheEngine));
}

bool OpenEngineAtBoot(std::wstring& error) {
  for (int attempt = 1; attempt <= kOpenTries; ++attempt) {
    if (OpenEngine(TheEngine, error)) break;
    if (attempt < kOpenTries) platform::SleepMilliseconds(kOpenSpacingMs);
  }
  return EngineIsOpen(TheEngine);
}

}  // namespace

void SetConfig(Json& reply, Config config) {
  std::wstring error;
  if (!DiskTakes(config, error)) {
    LogService(L"Rejected configuration (cannot be saved, nothing changed): %s", error);
    reply = ErrorReply(L"The configuration cannot be saved, so nothing was changed: " + error);
    return;
  }
  Config snapshot = Core.CurrentConfig;
  bool config_changed = false;  // what compiling learns is in `config` and saved with it
  if (!ApplyConfig(config, error, config_changed)) {
    LogService(L"Rejected configuration (previous filters kept): %s", error);
    reply = ErrorReply(error);
    return;
  }
  BackupConfig();
  if (!SaveConfigWithLastGood(ConfigPath(), config, error)) {
    LogService(L"Saving the configuration failed (%s) - restoring the previous filters", error);
    RestoreFilters(std::move(snapshot));
    reply = ErrorReply(L"The configuration could not be saved, so the change was undone: " + error);
    return;
  }
  MakeLive(std::move(config));
  PublishConfigEvent("config_changed");
  BuildStatus(reply);
}

void ReApply(const std::wstring& cause) {
  ++Core.ApplyCount;
  std::wstring error;
  if (ApplyLiveConfig(error)) {
    Core.LastError.clear();
    return;
  }
  ++Core.ApplyFailures;
  // A failure that repeats on every pass is news once.
  if (error != Core.LastError) LogService(L"Re-apply (%s) failed: %s", cause, error);
  Core.LastError = error;
}

void BlockAllFallback() {
  Config config = BlockAllConfig(Core.CurrentConfig.allow_loopback);
  std::wstring error;
  bool config_changed = false;
  if (ApplyConfig(config, error, config_changed)) {
    LogService(L"Block-all fallback is active");
  } else {
    LogService(L"CRITICAL: block-all fallback failed: %s", error);
  }
}

bool FirstApply(Config config, std::wstring& error) {
  if (!OpenEngineAtBoot(error)) {
    LogService(L"Cannot open the WFP engine: %s (persistent filters stay active)", error);
    return false;
  }
  GuardLock lock(ConfigGuard);
  Core.CurrentConfig = std::move(config);
  live_config_unsaved = false;
  if (ApplyLiveConfig(error)) {
    LogService(L"Filters applied: %zu (protection %s)", FilterCount(TheEngine),
               Core.CurrentConfig.enabled ? L"ON" : L"OFF");
    return true;
  }
  Core.LastError = error;
  LogService(L"Applying the configuration failed: %s", error);
  BlockAllFallback();
  return true;
}

}  // namespace kestrelon

#include "core/core_loop.h"

#include <algorithm>
#include <string>
#include <vector>

#include "blocklists/refresh_blocklists.h"
#include "config/config_store.h"
#include "control/subscribers.h"
#include "core/config_change.h"
#include "core/health_line.h"
#include "core/service_log.h"
#include "core/temporary_apps.h"
#include "events/net_events.h"
#include "filtering/apply_config.h"
#include "filtering/boot_filters.h"
#include "filtering/filter_audit.h"
#include "filtering/filter_engine.h"
#include "identity/follow_updates.h"
#include "modules/supervise_modules.h"
#include "platform/clock.h"
#include "platform/wait.h"
#include "updates/update_state.h"
#include "updates/update_traffic.h"
#include "updates/update_worker.h"

namespace kestrelon {
namespace {

constexpr std::int64_t kLongestDelayMs = 15000;
// An expiry is served so long after it falls due, so that it is never served early.
constexpr std::int64_t kExpirySlackMs = 50;
// After a wake: so a burst of notifications, above all those of the service's own filter changes,
// costs one pass.
constexpr std::uint32_t kBurstMs = 200;

// What a pass has found out so far.
struct Pass {
  bool reopened = false;  // the session was lost earlier and has come back
  AuditResult audit = AuditResult::kClean;
  std::wstring difference;  // what the audit found
  bool need = false;        // a re-apply is due
  std::wstring cause;       // its word for the log; the last one that asked has it

  void Ask(const wchar_t* word) {
    need = true;
    cause = word;
  }
};

// Opens a session with an engine that has restarted. It has forgotten who listens to its reports.
bool OpenAgain() REQUIRES(ConfigGuard) {
  std::wstring error;
  if (!OpenEngine(TheEngine, error)) return false;
  StopNetEvents();
  StartNetEvents();
  return true;
}

// False: nothing can be done without a session.
bool EnsureSession(Pass& pass) REQUIRES(ConfigGuard) {
  if (EngineIsOpen(TheEngine)) return true;
  pass.reopened = OpenAgain();
  return pass.reopened;
}

void EndTemporaryPermissions() REQUIRES(ConfigGuard) {
  const std::vector<AppEntry> ended =
      ExpireTemporaryApps(Core.CurrentConfig, platform::SystemTime(), BootTime());
  if (ended.empty()) return;
  BackupConfig();
  SaveCurrentConfig();
  ReApply(L"temporary permission ended");
  for (const AppEntry& app : ended) {
    LogEndedPermission(app);
    Json event;
    event["type"] = Json("app_expired");
    event["path"] = Json(app.path);
    PublishEvent(event.Dump(false));
  }
  PublishConfigEvent("config_changed");
}

// What a pass before this one could not do. A failed application is retried for as long as it
// fails. An engine that was restarted holds the persistent filters under other ids, so that events
// could no longer be told apart: they are installed anew.
void HeedEarlierPasses(Pass& pass) REQUIRES(ConfigGuard) {
  if (!Core.LastError.empty()) pass.Ask(L"retry");
  if (pass.reopened) pass.Ask(L"reconnect");
}

// False: the engine is gone, and the pass ends.
bool Reconnect(Pass& pass) REQUIRES(ConfigGuard) {
  LogService(L"WFP engine connection lost - reconnecting");
  CloseEngine(TheEngine);
  if (!OpenAgain()) return false;
  pass.Ask(L"reconnect");
  return true;
}

bool HeedAudit(Pass& pass) REQUIRES(ConfigGuard) {
  pass.audit = FilterAudit(TheEngine, pass.difference);
  if (pass.audit == AuditResult::kEngineLost) return Reconnect(pass);
  if (pass.audit == AuditResult::kDiffers) {
    ++Core.TamperRestores;
    LogService(L"Kestrelon filters were modified externally (%s) - restoring", pass.difference);
    pass.Ask(L"tamper");
  }
  return true;
}

void HeedFileWatch(Pass& pass) REQUIRES(ConfigGuard) {
  if (Core.WatchRebuildPending && Core.CurrentConfig.enabled) pass.Ask(L"watch rebuild");
  if (Core.ChangedFilePending) pass.Ask(L"file changed");
}

// What has changed behind the configuration's back: old versions that went, files, DNS servers.
void HeedDrift(Pass& pass) REQUIRES(ConfigGuard) {
  if (!Core.CurrentConfig.enabled) return;
  if (PruneOldVersions()) {
    SaveCurrentConfig();
    PublishConfigEvent("config_changed");
    pass.Ask(L"prune");
  } else if (!pass.need && IdentitiesDrifted(Core.CurrentConfig)) {
    pass.Ask(L"files changed");
  }
}

void HeedBlocklists(Pass& pass) REQUIRES(ConfigGuard) {
  StartBlocklistRefresh(Core.CurrentConfig, false);
  if (Core.BlocklistsChanged.exchange(false) && Core.CurrentConfig.enabled) {
    pass.Ask(L"blocklists updated");
  }
}

// The rule that lets an update in is the only one that comes and goes with its use.
void HeedUpdates(Pass& pass) REQUIRES(ConfigGuard) {
  UpdateWorker(Core.CurrentConfig, false);
  if (UpdateSignals.UpdateStatusChanged.exchange(false)) PublishConfigEvent("update_status");
  if (UpdateRuleIsDue(Core.CurrentConfig)) pass.Ask(L"update rule");
}

void ApplyWhatIsDue(const Pass& pass) REQUIRES(ConfigGuard) {
  if (!pass.need) return;
  ReApply(pass.cause);
  // Filters that somebody changed and that can't be restored must not stay as they are.
  if (!Core.LastError.empty() && pass.audit == AuditResult::kDiffers) BlockAllFallback();
}

// Waits for the next reason to run a pass; false when the loop is to end.
bool AwaitPass() EXCLUDES(ConfigGuard) {
  std::uint32_t delay_ms = 0;
  {
    GuardLock lock(ConfigGuard);
    delay_ms = NextPassDelayMs();
  }
  constexpr int kWoken = 1;
  // The stop stands first: it wins over a wake that is set as well.
  const int result = platform::WaitForAny({&Core.StopEvent, &Core.WakeEvent}, delay_ms);
  if (result == kWoken) platform::SleepMilliseconds(kBurstMs);
  return result == kWoken || result == platform::kWaitTimedOut;
}

}  // namespace

std::uint32_t NextPassDelayMs() {
  const auto expiry = NextExpiry(Core.CurrentConfig);
  if (!expiry) return kLongestDelayMs;
  const std::int64_t now = platform::SystemTime();
  // A configuration may name any time: one long past would overflow the difference.
  const std::int64_t left_ms = *expiry <= now ? 0 : (*expiry - now) / platform::kTimeStepsPerMs;
  return static_cast<std::uint32_t>(
      std::clamp(left_ms + kExpirySlackMs, kExpirySlackMs, kLongestDelayMs));
}

void LoopPass() {
  GuardLock lock(ConfigGuard);
  if (Core.Stopping) return;
  Pass pass;
  if (!EnsureSession(pass)) return;
  HealthLine();
  RetryBootFilters();
  EndTemporaryPermissions();
  HeedEarlierPasses(pass);
  if (!HeedAudit(pass)) return;
  HeedFileWatch(pass);
  HeedDrift(pass);
  HeedBlocklists(pass);
  HeedUpdates(pass);
  ApplyWhatIsDue(pass);
  SuperviseModules(Core.CurrentConfig);
}

void CoreLoop() {
  while (AwaitPass()) LoopPass();
}

}  // namespace kestrelon

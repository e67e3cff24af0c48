#include "core/core_start.h"

#include <utility>
#include <vector>

#include "blocklists/blocklist_store.h"
#include "blocklists/refresh_blocklists.h"
#include "config/config_store.h"
#include "config/presets.h"
#include "control/pipe_server.h"
#include "core/config_change.h"
#include "core/data_dir.h"
#include "core/service_log.h"
#include "core/temporary_apps.h"
#include "events/allowed_logging.h"
#include "events/net_events.h"
#include "filtering/changed_files.h"
#include "filtering/filter_engine.h"
#include "identity/file_watch.h"
#include "identity/follow_updates.h"
#include "platform/clock.h"
#include "platform/network.h"

namespace kestrelon {
namespace {

// Of the thread that starts and stops the core.
platform::InterfaceNotification interface_notification = 0;

// What ended while the service was down ends before anything is applied.
void EndTemporaryPermissions(Config& config) REQUIRES(ConfigGuard) {
  const std::vector<AppEntry> ended =
      ExpireTemporaryApps(config, platform::SystemTime(), BootTime());
  if (ended.empty()) return;
  for (const AppEntry& app : ended) LogEndedPermission(app);
  std::wstring error;
  if (!SaveStartConfig(config, error)) LogService(L"Cannot save configuration: %s", error);
}

// Brings an older configuration up to the present predefined rules.
void UpgradePredefinedRules(Config& config) REQUIRES(ConfigGuard) {
  if (!UpgradePresets(config)) return;
  LogService(L"Predefined rules updated to generation %d (new ones added)", kPresetsGeneration);
  std::wstring error;
  if (!SaveStartConfig(config, error)) LogService(L"Cannot save configuration: %s", error);
}

// From now on what happens on the machine wakes the loop. Without the notification of interfaces
// the next timed pass finds what changed.
void ListenToMachine() {
  Core.DirectoryChangedHook = &BlockChangedFiles;
  (void)platform::NotifyInterfaceChanges(
      [](void* event) { static_cast<platform::Event*>(event)->Set(); }, &Core.WakeEvent,
      interface_notification);
}

void StopListeningToMachine() {
  if (interface_notification == 0) return;
  platform::CancelInterfaceNotification(interface_notification);
  interface_notification = 0;
}

void StartReports() {
  GuardLock lock(ConfigGuard);
  StartNetEvents();
  // The first application asked for it when there was no subscription yet.
  RefreshAllowedSelection(Core.CurrentConfig);
}

void StopReports() {
  GuardLock lock(ConfigGuard);
  StopNetEvents();
}

// Under the guard: an application still running for a client that hangs would start watches anew.
void StopWatching() {
  GuardLock lock(ConfigGuard);
  SyncFileWatch({}, &Core.WakeEvent);
}

}  // namespace

bool CoreStart() {
  // The directory is closed to others before anything is written into it.
  SecureDataDir();
  LogService(L"Kestrelon service %s (%s) starting", kVersion, kBuild);

  Config config;
  {
    GuardLock lock(ConfigGuard);
    ObtainStartConfig(config);
    EndTemporaryPermissions(config);
    UpgradePredefinedRules(config);
  }
  LoadBlocklists();

  ListenToMachine();
  TheEngine.change_event = &Core.WakeEvent;
  std::wstring error;
  if (!FirstApply(std::move(config), error)) {
    StopListeningToMachine();
    return false;
  }
  StartFollowWorker();
  StartReports();
  // Last, so that the first client sees applied filters.
  StartControlPipe();
  return true;
}

void CoreStop() {
  LogService(L"Kestrelon service stopping (filters stay active)");
  Core.Stopping = true;
  StopControlPipe();
  StopReports();
  StopFollowWorker();
  StopListeningToMachine();
  StopWatching();
  StopBlocklistRefresh();
  GuardLock lock(ConfigGuard);
  CloseEngine(TheEngine);
}

}  // namespace kestrelon

#include "core/core_start.h"

#include <utility>
#include <vector>

#include "blocklists/blocklist_store.h"
#include "blocklists/refresh_blocklists.h"
#include "config/config_store.h"
#include "config/presets.h"
#include "control/pipe_server.h"
#include "control/reply.h"
#include "core/config_change.h"
#include "core/data_dir.h"
#include "core/service_log.h"
#include "core/temporary_apps.h"
#include "core/version.h"
#include "events/allowed_logging.h"
#include "events/net_events.h"
#include "filtering/changed_files.h"
#include "filtering/filter_engine.h"
#include "identity/file_watch.h"
#include "identity/follow_updates.h"
#include "modules/firewall_exceptions.h"
#include "modules/module_client.h"
#include "modules/module_pipe.h"
#include "modules/module_processes.h"
#include "modules/supervise_modules.h"
#include "platform/clock.h"
#include "platform/network.h"
#include "updates/report_install.h"
#include "updates/update_worker.h"

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
  if (!SaveConfig(config, error)) LogService(L"Cannot save configuration: %s", error);
}

// Brings an older configuration up to the present predefined rules.
void UpgradePredefinedRules(Config& config) REQUIRES(ConfigGuard) {
  if (!UpgradePresets(config)) return;
  LogService(L"Predefined rules updated to generation %d (new ones added)", kPresetsGeneration);
  std::wstring error;
  if (!SaveConfig(config, error)) LogService(L"Cannot save configuration: %s", error);
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

// What a module may learn of the service.
Json ModuleStatusReply() EXCLUDES(ConfigGuard) {
  Json reply = OkReply();
  GuardLock lock(ConfigGuard);
  reply["protection"] = Core.CurrentConfig.enabled;
  reply["kestrelon"] = kVersion;
  return reply;
}

// What a run that crashed left in the system's own firewall goes before modules ask for it anew.
void StartModules() {
  SetModuleStatusProvider(ModuleStatusReply);
  if (const int removed = RemoveFirewallExceptions(); removed != 0) {
    LogService(
        L"Windows Defender Firewall: %d Kestrelon exception(s) from the previous start removed",
        removed);
  }
  GuardLock lock(ConfigGuard);
  SuperviseModules(Core.CurrentConfig);
}

// Their processes run on. Under the guard: a client that hangs may be in the middle of a pass.
void StopModules() {
  GuardLock lock(ConfigGuard);
  CloseModulePipe();
  DropModuleProcesses();
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
  LogService(L"Kestrelon service %s (%d) starting", kVersion, kBuild);

  Config config;
  {
    GuardLock lock(ConfigGuard);
    ObtainStartConfig(config);
    EndTemporaryPermissions(config);
    UpgradePredefinedRules(config);
  }
  LoadBlocklists();
  StartUpdateSchedule();
  FinishPastInstall();

  ListenToMachine();
  TheEngine.change_event = &Core.WakeEvent;
  std::wstring error;
  if (!FirstApply(std::move(config), error)) {
    StopListeningToMachine();
    return false;
  }
  StartFollowWorker();
  StartReports();
  // So late that the first client sees applied filters.
  StartControlPipe();
  StartModules();
  return true;
}

void CoreStop() {
  LogService(L"Kestrelon service stopping (filters stay active)");
  Core.Stopping = true;
  StopControlPipe();
  StopModules();
  StopReports();
  StopFollowWorker();
  StopListeningToMachine();
  StopWatching();
  StopBlocklistRefresh();
  StopUpdates();
  GuardLock lock(ConfigGuard);
  CloseEngine(TheEngine);
}

}  // namespace kestrelon

#include "core/core_start.h"

#include <utility>

#include "config/config_store.h"
#include "config/presets.h"
#include "core/config_change.h"
#include "core/data_dir.h"
#include "core/service_log.h"
#include "filtering/filter_engine.h"

namespace kestrelon {
namespace {

// Brings an older configuration up to the present predefined rules.
void UpgradePredefinedRules(Config& config) REQUIRES(ConfigGuard) {
  if (!UpgradePresets(config)) return;
  LogService(L"Predefined rules updated to generation %d (new ones added)", kPresetsGeneration);
  std::wstring error;
  if (!SaveStartConfig(config, error)) LogService(L"Cannot save configuration: %s", error);
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
    UpgradePredefinedRules(config);
  }

  TheEngine.change_event = &Core.WakeEvent;
  std::wstring error;
  return FirstApply(std::move(config), error);
}

void CoreStop() {
  LogService(L"Kestrelon service stopping (filters stay active)");
  Core.Stopping = true;
  GuardLock lock(ConfigGuard);
  CloseEngine(TheEngine);
}

}  // namespace kestrelon

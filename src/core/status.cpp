#include "core/status.h"

#include <cstdint>
#include <string>
#include <utility>

#include "blocklists/blocklist_store.h"
#include "blocklists/refresh_blocklists.h"
#include "control/reply.h"
#include "core/version.h"
#include "filtering/apply_config.h"
#include "filtering/compile_apps.h"
#include "filtering/filter_engine.h"
#include "modules/module_processes.h"
#include "updates/update_state.h"

namespace kestrelon {
namespace {

// How the start came to its configuration, while that is not the user's last word.
void AddFallback(Json& status) REQUIRES(ConfigGuard) {
  if (Core.FallbackKind.empty()) return;
  status["fallback"] = Core.FallbackKind;
  status["fallback_cause"] = Core.FallbackCause;
  if (!Core.FallbackFrom.empty()) status["fallback_from"] = Core.FallbackFrom;
}

}  // namespace

void BuildStatus(Json& reply) {
  Json status = OkReply();
  status["version"] = kVersion;
  status["build"] = std::to_wstring(kBuild);
  status["enabled"] = Core.CurrentConfig.enabled;
  status["filters"] = std::uint64_t{FilterCount(TheEngine)};
  status["boot_filter"] = Core.BootInstalled;
  status["last_error"] = Core.LastError;
  status["blocklists"] = BlocklistStatus();
  status["blocklists_busy"] = BlocklistRefreshRunning();
  status["update"] = UpdateStatus(Core.CurrentConfig);
  AddFallback(status);
  status["net_events"] = Core.NetEvents.load();
  status["net_drops"] = Core.NetDrops.load();
  status["warnings"] = JsonArray(InstalledWarnings());
  status["changed_apps"] = JsonArray(KeptBlockedPaths());
  status["modules_running"] = ModuleProcessCount();
  reply = std::move(status);
}

}  // namespace kestrelon

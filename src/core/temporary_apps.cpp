#include "core/temporary_apps.h"

#include <algorithm>
#include <utility>

#include "core/service_log.h"
#include "platform/clock.h"

namespace kestrelon {

std::int64_t BootTime() {
  const auto since_boot_ms = static_cast<std::int64_t>(platform::TickMilliseconds());
  return platform::SystemTime() - since_boot_ms * platform::kTimeStepsPerMs;
}

bool HasEnded(const AppEntry& app, std::int64_t now, std::int64_t boot_time) {
  if (app.expires != 0 && now >= app.expires) return true;
  // An entry of unknown age may be older than the machine's start: it ends.
  return app.until_reboot && (app.added == 0 || app.added < boot_time);
}

std::vector<AppEntry> ExpireTemporaryApps(Config& config, std::int64_t now,
                                          std::int64_t boot_time) {
  std::vector<AppEntry> ended;
  std::vector<AppEntry> kept;
  for (AppEntry& app : config.apps) {
    (HasEnded(app, now, boot_time) ? ended : kept).push_back(std::move(app));
  }
  config.apps = std::move(kept);
  return ended;
}

void LogEndedPermission(const AppEntry& app) {
  LogService(L"Temporary permission ended: %s", app.path);
}

std::optional<std::int64_t> NextExpiry(const Config& config) {
  std::optional<std::int64_t> next;
  for (const AppEntry& app : config.apps) {
    if (app.expires != 0) next = std::min(next.value_or(app.expires), app.expires);
  }
  return next;
}

}  // namespace kestrelon

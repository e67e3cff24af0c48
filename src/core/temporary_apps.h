// Permissions that end by themselves: at a time, or with the machine's next start. Times are 100 ns
// steps since 1601-01-01 UTC.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "config/config.h"

namespace kestrelon {

// When the machine started, by the wall clock and the tick of now.
[[nodiscard]] std::int64_t BootTime();

// Whether an entry is over, although nobody may have taken it out yet.
[[nodiscard]] bool HasEnded(const AppEntry& app, std::int64_t now, std::int64_t boot_time);

// Takes out of `config` the entries that have ended and gives them, in list order.
[[nodiscard]] std::vector<AppEntry> ExpireTemporaryApps(Config& config, std::int64_t now,
                                                        std::int64_t boot_time);

// Tells of one in the log.
void LogEndedPermission(const AppEntry& app);

// When the next entry ends by its time.
[[nodiscard]] std::optional<std::int64_t> NextExpiry(const Config& config);

}  // namespace kestrelon

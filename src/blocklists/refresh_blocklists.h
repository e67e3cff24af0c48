// Keeps the downloaded blocklists fresh, on a thread that lives as long as one refresh. A bad
// download never makes things worse: the list stays as it was.
#pragma once

#include "config/config.h"
#include "core/core_state.h"

namespace kestrelon {

// Starts a refresh of the configuration's lists that are due, or of all of them when forced, unless
// one is running. At most once an hour when not forced. When a list has changed, BlocklistsChanged
// and WakeEvent are set.
void StartBlocklistRefresh(const Config& config, bool force) REQUIRES(ConfigGuard);

// Whether a refresh is running. Any thread.
[[nodiscard]] bool BlocklistRefreshRunning();

// Ends the running refresh and waits for its end; none starts afterwards.
void StopBlocklistRefresh() EXCLUDES(ConfigGuard);

}  // namespace kestrelon

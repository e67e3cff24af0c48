// The fixed filters that protect between the start of the network stack and the moment when the
// filtering engine has loaded the persistent ones.
#pragma once

#include <string>
#include <vector>

#include "base/guard.h"
#include "core/core_state.h"
#include "filtering/filter_engine.h"

namespace kestrelon {

// Replaces the boot-time set, or removes it when it is not wanted: four filters that block
// everything, and four more that let loopback through. A set refused in its first form is tried
// once more in a plainer one. Afterwards engine.BootExpected says how many the audit is to find.
[[nodiscard]] bool InstallBootFilters(FilterEngine& engine, bool wanted, bool allow_loopback,
                                      std::wstring& error) EXCLUDES(engine.EngineGuard);

// How many of the eight there are.
[[nodiscard]] int CountBootFilters(FilterEngine& engine) REQUIRES(engine.EngineGuard);

// Brings the boot-time filters in line with an applied configuration, and the core's state with
// what came of it: a failure gives a warning and a later retry, never more.
void ApplyBootFilters(const Config& config, std::vector<std::wstring>& warnings)
    REQUIRES(ConfigGuard);

// Tries again what failed, when its time has come and the live configuration still wants it.
void RetryBootFilters() REQUIRES(ConfigGuard);

}  // namespace kestrelon

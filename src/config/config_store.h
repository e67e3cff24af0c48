// The configuration on disk: last working copy, backups, recovery, and the registry flag that
// tells a deleted configuration from a first start.
//
// No locks here: all writers of config.json run under ConfigGuard.
#pragma once

#include <string>

#include "base/guard.h"
#include "config/config.h"
#include "core/core_state.h"

namespace kestrelon {

// Full path of config.json.
[[nodiscard]] std::wstring ConfigPath();

// Obtains the configuration of a start into `config`: reads it, makes the default on a first
// start, or recovers to the newest copy that loads or to the strict one, and sets the Fallback
// texts of the core's state. Cannot fail; every problem is logged.
void ObtainStartConfig(Config& config) REQUIRES(ConfigGuard);

// Writes a configuration to config.json, and to the last working copy unless the strict fallback is
// in force, which must never take its place.
[[nodiscard]] bool SaveConfig(const Config& config, std::wstring& error) REQUIRES(ConfigGuard);

// Writes the live configuration by SaveConfig. Failure is logged; false then.
bool SaveCurrentConfig() REQUIRES(ConfigGuard);

// Writes `config` to `path` and to its ".lastgood". A failure of the second is logged and counts
// as saved.
[[nodiscard]] bool SaveConfigWithLastGood(const std::wstring& path, const Config& config,
                                          std::wstring& error);

// Copies config.json into backups\ under the local time and keeps the 10 newest. Failures are
// logged.
void BackupConfig();

// Finds the newest copy that still loads; false when there is none.
[[nodiscard]] bool RestoreConfig(Config& config, std::wstring& source);

}  // namespace kestrelon

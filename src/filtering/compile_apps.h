// Decides for each listed application, file by file, whether it gets its permission, is blocked as
// configured, or is held back because it is no longer what was allowed.
//
// Runs under ConfigGuard, also when it works on a copy of the configuration.
#pragma once

#include <string>
#include <vector>

#include "base/guard.h"
#include "config/config.h"
#include "core/core_state.h"
#include "filtering/filter_plan.h"

namespace kestrelon {

// Fills `plan.entries`, `warnings`, `fingerprint` and `config_changed` afresh. A signer, a product
// or a first hash that it learns goes into `config`. Never fails; may hash and verify files and
// wait for the service manager.
//
// The fingerprint is one text with a piece for each file, service or package that was looked at. A
// difference between two compiles of one configuration means that the machine changed under it.
void CompileApps(Config& config, FilterPlan& plan) REQUIRES(ConfigGuard);

// The paths of the applications that the last CompileApps held back, in part or whole.
[[nodiscard]] const std::vector<std::wstring>& KeptBlockedPaths() REQUIRES(ConfigGuard);

}  // namespace kestrelon

// Decides for each listed application, file by file, whether it gets its permission, is blocked as
// configured, or is held back because it is no longer what was allowed.
//
// Runs under ConfigGuard, or on a copy: it writes into the configuration what it learns.
#pragma once

#include <string>
#include <vector>

#include "base/guard.h"
#include "config/config.h"
#include "core/core_state.h"
#include "filtering/filter_plan.h"

namespace kestrelon {

// Fills `plan.entries`, `warnings`, `fingerprint` and `config_changed` afresh. A signer, a product
// or a first hash that it learns goes into `config`. Never fails; may hash and verify files.
void CompileApps(Config& config, FilterPlan& plan) REQUIRES(ConfigGuard);

// The paths of the applications that the last CompileApps held back, in part or whole.
[[nodiscard]] std::vector<std::wstring> KeptBlockedPaths() REQUIRES(ConfigGuard);

// The machine's DNS servers in the platform's order, ", "-separated; empty if none is known. The
// order is part of the fingerprint.
[[nodiscard]] std::wstring CollectDnsServers();

// The effective configuration: `plan.dns_servers` in place of "$dns", and rules without a server
// switched off with a warning. The input stays as it is.
[[nodiscard]] Config ExpandRules(const Config& config, FilterPlan& plan);

}  // namespace kestrelon

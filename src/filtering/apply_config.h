// The one entry point for installing a configuration.
#pragma once

#include <string>
#include <vector>

#include "base/guard.h"
#include "config/config.h"
#include "core/core_state.h"

namespace kestrelon {

// Compiles `config` and swaps the whole set of filters in one transaction. False with `error` set
// leaves the previous filters in place. `config_changed` says that compiling wrote into `config`
// what it learnt, so that it is to be saved; after a failure too, as what was learnt stays there.
[[nodiscard]] bool ApplyConfig(Config& config, std::wstring& error, bool& config_changed)
    REQUIRES(ConfigGuard);

// Whether the machine changed under a configuration since the last successful application: a file
// was replaced, a service moved, a DNS server changed. Installs nothing; what compiling learns is
// lost with the copy.
[[nodiscard]] bool IdentitiesDrifted(Config config) REQUIRES(ConfigGuard);

// The warnings of the last successful application.
[[nodiscard]] const std::vector<std::wstring>& InstalledWarnings() REQUIRES(ConfigGuard);

}  // namespace kestrelon

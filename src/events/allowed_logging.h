// Whether the engine reports allowed connections: costly, and so only while something asks for it.
#pragma once

#include "config/config.h"
#include "core/core_state.h"

namespace kestrelon {

// Takes from a configuration as saved which connections are to be tracked, and turns the engine's
// reports on or off accordingly. Asks the service manager and the disk.
void RefreshAllowedSelection(const Config& config) REQUIRES(ConfigGuard);

// Turns the engine's reports of allowed connections on or off, when that is a change. Does nothing
// without a subscription. What fails is logged and not tried again for the same wish.
void SetAllowedLogging(bool on) REQUIRES(ConfigGuard);

}  // namespace kestrelon

// Whether the engine reports allowed connections: costly, and so only while something asks for it.
#pragma once

#include "config/config.h"
#include "core/core_state.h"

namespace kestrelon {

// Takes from a configuration as saved which connections are to be tracked, and turns the engine's
// reports on or off accordingly, when that is a change and there is a subscription. What fails is
// logged and not tried again for the same wish. Asks the service manager and the disk.
void RefreshAllowedSelection(const Config& config) REQUIRES(ConfigGuard);

}  // namespace kestrelon

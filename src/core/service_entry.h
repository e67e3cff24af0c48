// The process as the service KestrelonSvc.
#pragma once

#include <cstdint>

#include "base/guard.h"
#include "core/core_state.h"

namespace kestrelon {

// What the service manager runs, on a thread of its own: start, loop and stop of the core, with
// every state reported. Returns once the service has stopped or could not reach the manager.
void ServiceEntry() EXCLUDES(ConfigGuard);

// Answers a control of the service manager, on the dispatcher's thread: 0 for done,
// kCallNotImplemented for what the service does not know. Never blocks on the core.
std::uint32_t HandleServiceControl(std::uint32_t control);

}  // namespace kestrelon

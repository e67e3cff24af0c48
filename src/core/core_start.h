// Start and stop of the process's work, on the thread that also runs it.
#pragma once

#include "base/guard.h"
#include "core/core_state.h"

namespace kestrelon {

// Takes the process from an empty state to a protected machine. False when the filtering engine
// can't be opened: what the previous run left persistent then stays active. Every other failure is
// logged and survived.
[[nodiscard]] bool CoreStart() EXCLUDES(ConfigGuard);

// Ends the work and leaves the filters alone: they are persistent and keep protecting.
void CoreStop() EXCLUDES(ConfigGuard);

}  // namespace kestrelon

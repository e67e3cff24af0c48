// The commands of a client.
#pragma once

#include "base/guard.h"
#include "config/json.h"
#include "core/core_state.h"

namespace kestrelon {

// Answers one request object by its "cmd". Runs on the client's thread; may wait for ConfigGuard
// behind a whole pass of the core loop.
[[nodiscard]] Json DispatchCommand(const Json& request) EXCLUDES(ConfigGuard);

}  // namespace kestrelon

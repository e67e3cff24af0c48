// The state of the service as a client sees it.
#pragma once

#include "base/guard.h"
#include "config/json.h"
#include "core/core_state.h"

namespace kestrelon {

// Fills `reply` afresh with the status object.
void BuildStatus(Json& reply) REQUIRES(ConfigGuard);

}  // namespace kestrelon

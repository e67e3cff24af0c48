// A summary of the service's state in its log, once an hour.
#pragma once

#include "base/guard.h"
#include "core/core_state.h"

namespace kestrelon {

// Writes the line when it is due: five minutes after the start and every hour from then on. The
// loop's thread only.
void HealthLine() REQUIRES(ConfigGuard);

}  // namespace kestrelon

// The heart of the service: one thread that wakes on every event of interest, and every 15 seconds,
// to bring the installed filters back in line with the live configuration.
#pragma once

#include <cstdint>

#include "base/guard.h"
#include "core/core_state.h"

namespace kestrelon {

// Runs passes until StopEvent is set or the wait for it fails.
void CoreLoop() EXCLUDES(ConfigGuard);

// One pass. The thread that ran CoreStart, only.
void LoopPass() EXCLUDES(ConfigGuard);

// How long the loop may sleep before the next pass is due, in milliseconds, 50 to 15000.
[[nodiscard]] std::uint32_t NextPassDelayMs() REQUIRES(ConfigGuard);

}  // namespace kestrelon

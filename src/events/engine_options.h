// The engine's options.
#pragma once

#include <cstdint>

#include "platform/net_events.h"

namespace kestrelon {

// Sets an option of the machine's engine on a short session of its own: the platform refuses it to
// dynamic sessions, such as the one that listens. Blocks on the engine.
[[nodiscard]] platform::Code SetEngineOption(platform::EngineOption option, std::uint32_t value);

}  // namespace kestrelon

// The switch of the engine's reports of allowed connections, and how their layers are told apart.
//
// Below what decides about it (allowed_logging.h) and what subscribes (net_events.h).
#pragma once

#include <cstdint>
#include <optional>

#include "core/core_state.h"
#include "platform/net_events.h"

namespace kestrelon {

// What the engine reports beside drops and what it reports anyway.
inline constexpr std::uint32_t kDropKeywords =
    platform::kKeywordInboundMulticast | platform::kKeywordInboundBroadcast;

// Learns by which numbers the events name the layers; does nothing once they are known. A layer
// whose number can't be learnt is the layer of no event.
void LearnAllowLayers(platform::EngineHandle engine) REQUIRES(ConfigGuard);

// Turns the reports on or off in the engine, when that is a change, and logs it. The switch stands
// as asked even when the engine refuses: the same wish doesn't try again.
void SwitchAllowEvents(bool on) REQUIRES(ConfigGuard);

// Whether they are wanted. Any thread.
[[nodiscard]] bool AllowEventsOn();

// 0 outbound, 1 inbound; nothing for a layer other than the four of connections. Any thread.
[[nodiscard]] std::optional<std::uint32_t> DirectionOfLayer(std::uint16_t layer_id);

}  // namespace kestrelon

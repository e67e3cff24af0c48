// The engine's reports of blocked and allowed connections, and what the product takes from them.
#pragma once

#include "core/core_state.h"
#include "platform/net_events.h"

namespace kestrelon {

// Subscribes to the engine's reports on a session of their own. What fails is logged and leaves no
// subscription: blocking works without it. Does nothing while subscribed.
void StartNetEvents() REQUIRES(ConfigGuard);

// Turns the reports of allowed connections off, ends the subscription and waits for the running
// callbacks; afterwards none runs. Also for a session whose engine is gone; does nothing without
// one.
void StopNetEvents() REQUIRES(ConfigGuard);

// The session; 0 without a subscription. A subscription ends silently with its engine.
[[nodiscard]] platform::EngineHandle NetEventSession() REQUIRES(ConfigGuard);

// The callbacks, for the newest and for the oldest record: count the event and hand what is the
// product's to the activity log and to the table of allowed connections. They run on threads of the
// engine's, several at a time, and take leaf guards and RecordGuard, each for a moment. They don't
// throw: an event that there is no memory for is lost.
void OnNetEvent(void* context, const platform::NetEvent* event);
void OnNetEventLegacy(void* context, const platform::NetEvent* event);

}  // namespace kestrelon

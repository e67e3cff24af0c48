// From net events to the platform's structures.
#pragma once

#include <windows.h>

#include <fwpmu.h>

#include "platform/windows/net_event_native.h"
#include "simulation/engine/connection.h"

namespace simulation {

// Call back with an event in the form that the callback takes, filled as the engine fills those of
// its authorization layers. It points into `event`, and is gone after the call.
//
// The newest form.
void TellEvent(NetEvent& event, kestrelon::platform::FWPM_NET_EVENT_CALLBACK4 callback,
               void* context);
// The oldest form, which has no record for an allowed connection: of these nothing is told.
void TellEvent(NetEvent& event, FWPM_NET_EVENT_CALLBACK0 callback, void* context);

}  // namespace simulation

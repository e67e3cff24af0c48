// The events of one client that has subscribed.
#pragma once

#include "control/pipe_state.h"

namespace kestrelon {

// Sends the connection what is published from now on, and a ping whenever nothing was for fifteen
// seconds. Returns when a message can't be sent, which is how a vanished client is found, or on the
// stop. Nothing that the client sends is read.
void StreamEvents(const platform::Pipe& pipe) EXCLUDES(TheControlPipe.SubscriberGuard);

}  // namespace kestrelon

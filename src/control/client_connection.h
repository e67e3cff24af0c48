// One connection of the control pipe, on a thread of its own.
#pragma once

#include "control/pipe_state.h"

namespace kestrelon {

// Answers the requests of the client one by one, or turns to sending it events once it has
// subscribed, until it leaves, breaks a rule or the pipe stops.
void ControlClient(PipeConnection& client) EXCLUDES(TheControlPipe.SubscriberGuard);

}  // namespace kestrelon

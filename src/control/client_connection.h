// One connection of the control pipe, on a thread of its own.
#pragma once

#include <list>

#include "control/pipe_state.h"

namespace kestrelon {

// Thread routine: answers the requests of the client one by one, or turns to sending it events once
// it has subscribed, until it leaves, breaks a rule or the pipe stops. Then takes the connection
// out of TheControlPipe.clients, where `client` stands.
void ControlClient(std::list<platform::Pipe>::iterator client)
    EXCLUDES(TheControlPipe.SubscriberGuard);

}  // namespace kestrelon

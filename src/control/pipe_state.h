// What the threads of the control pipe share. For the pipe's own files: everybody else publishes
// through subscribers.h, and starts and stops through pipe_server.h.
#pragma once

#include <deque>
#include <memory>
#include <set>
#include <string>

#include "base/guard.h"
#include "control/pipe_listener.h"

namespace kestrelon {

// One published text, shared by the queues of all subscribers.
using EventText = std::shared_ptr<const std::string>;

// A client that gets events; lives on its client's thread, in the table for as long.
struct Subscriber {
  std::deque<EventText> queue;  // what was not sent yet, oldest first
};

struct ControlPipeState {
  // A leaf: taken for moments by publishers that hold other guards; no pipe is read or written
  // under it.
  Guard SubscriberGuard{"SubscriberGuard", GuardRank::kLeaf};
  std::set<Subscriber*> subscribers GUARDED_BY(SubscriberGuard);
  // Tells subscribers of an event or the stop, and the stop of a thread that has ended.
  GuardCondition wake;

  PipeListener listener{SubscriberGuard, wake};
};

// The one control pipe. Never destroyed: client threads are detached, and one that hangs may
// outlive main.
extern ControlPipeState& TheControlPipe;

}  // namespace kestrelon

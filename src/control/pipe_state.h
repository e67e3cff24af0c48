// What the threads of the control pipe share. For the pipe's own files: everybody else publishes
// through subscribers.h, and starts and stops through pipe_server.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "base/guard.h"
#include "control/pipe_listener.h"

namespace kestrelon {

// One published text, shared with those that are sending it.
using EventText = std::shared_ptr<const std::string>;

struct ControlPipeState {
  // A leaf: taken for moments by publishers that hold other guards; no pipe is read or written
  // under it.
  Guard SubscriberGuard{"SubscriberGuard", GuardRank::kLeaf};
  std::size_t subscribers GUARDED_BY(SubscriberGuard) = 0;
  // What was published last, oldest first, while anybody subscribes. One list for all, in which
  // each has its place: publishing to a hundred is no more work than to one.
  std::deque<EventText> events GUARDED_BY(SubscriberGuard);
  std::uint64_t published GUARDED_BY(SubscriberGuard) = 0;  // how many ever; numbers events from 0
  // Tells subscribers of an event or the stop, and the stop of a thread that has ended.
  GuardCondition wake;

  PipeListener listener{SubscriberGuard, wake};
};

// The one control pipe. Never destroyed: client threads are detached, and one that hangs may
// outlive main.
extern ControlPipeState& TheControlPipe;

}  // namespace kestrelon

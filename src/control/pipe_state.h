// What the threads of the control pipe share. For the pipe's own files: everybody else publishes
// through subscribers.h, and starts and stops through pipe_server.h.
#pragma once

#include <atomic>
#include <deque>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include "base/guard.h"
#include "platform/pipes.h"
#include "platform/security.h"

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
  // The connections of all running client threads. A thread takes its own out, which closes it, as
  // its last act: whatever stands here is open, so cancelling never meets a handle used anew.
  std::list<platform::Pipe> clients GUARDED_BY(SubscriberGuard);
  bool accepting GUARDED_BY(SubscriberGuard) = false;  // the accept loop runs
  // Tells subscribers of an event or the stop, and the stop of a thread that has ended.
  GuardCondition wake;

  // All threads of the pipe are to end. Atomic because they look at it between two waits without
  // the guard; who waits under the guard is woken under it after the change.
  std::atomic<bool> PipeStop = false;

  // Start and stop only, and read by the accept loop in between.
  platform::SecurityDescriptor PipeDescriptor;
  std::thread accept_thread;
};

// The one control pipe. Never destroyed: client threads are detached, and one that hangs may
// outlive main.
extern ControlPipeState& TheControlPipe;

}  // namespace kestrelon

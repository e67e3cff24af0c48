// The events of one client that has subscribed.
#pragma once

#include <cstdint>

#include "control/pipe_state.h"

namespace kestrelon {

// A client's place in the list of events for as long as this lives. One thread.
class Subscription {
 public:
  Subscription() EXCLUDES(TheControlPipe.SubscriberGuard);
  ~Subscription() EXCLUDES(TheControlPipe.SubscriberGuard);
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;

  // Waits for the next text to send: the oldest event that was not, or a ping when fifteen seconds
  // passed without one. Null once PipeStop is set.
  EventText Next(const std::atomic<bool>& PipeStop) EXCLUDES(TheControlPipe.SubscriberGuard);

 private:
  // Until there is an event that was not sent, the ping is due, or the stop.
  void AwaitEvent(const std::atomic<bool>& PipeStop) REQUIRES(TheControlPipe.SubscriberGuard);

  std::uint64_t next_ = 0;  // number of the first event that was not sent
};

// Sends the connection what is published from now on, and pings. Returns when a message can't be
// sent, which is how a vanished client is found, or on the stop. Nothing that the client sends is
// read.
void StreamEvents(const PipeConnection& client) EXCLUDES(TheControlPipe.SubscriberGuard);

}  // namespace kestrelon

#include "control/event_stream.h"

#include <algorithm>
#include <chrono>

#include "control/frames.h"

namespace kestrelon {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kPingAfter(15);
constexpr const char* kPing = R"({"type":"ping"})";

}  // namespace

Subscription::Subscription() {
  GuardLock lock(TheControlPipe.SubscriberGuard);
  ++TheControlPipe.subscribers;
  next_ = TheControlPipe.published;
}

Subscription::~Subscription() {
  GuardLock lock(TheControlPipe.SubscriberGuard);
  if (--TheControlPipe.subscribers == 0) TheControlPipe.events.clear();
}

EventText Subscription::Next(const std::atomic<bool>& PipeStop) {
  GuardLock lock(TheControlPipe.SubscriberGuard);
  if (next_ == TheControlPipe.published) AwaitEvent(PipeStop);
  if (PipeStop) return nullptr;
  if (next_ == TheControlPipe.published) return std::make_shared<const std::string>(kPing);
  const std::uint64_t oldest = TheControlPipe.published - TheControlPipe.events.size();
  next_ = std::max(next_, oldest);  // a client that is too slow has lost some
  return TheControlPipe.events[next_++ - oldest];
}

void Subscription::AwaitEvent(const std::atomic<bool>& PipeStop) {
  const steady_clock::time_point deadline = steady_clock::now() + kPingAfter;
  while (next_ == TheControlPipe.published && !PipeStop && steady_clock::now() < deadline) {
    TheControlPipe.wake.WaitUntil(TheControlPipe.SubscriberGuard, deadline);
  }
}

void StreamEvents(const PipeConnection& client) {
  Subscription subscription;
  while (const EventText text = subscription.Next(*client.PipeStop)) {
    if (!WriteFrame(client.pipe, *text)) return;
  }
}

}  // namespace kestrelon

#include "control/event_stream.h"

#include <chrono>
#include <utility>

#include "control/frames.h"

namespace kestrelon {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kPingAfter(15);
constexpr const char* kPing = R"({"type":"ping"})";

}  // namespace

Subscription::Subscription() {
  GuardLock lock(TheControlPipe.SubscriberGuard);
  TheControlPipe.subscribers.insert(&subscriber_);
}

Subscription::~Subscription() {
  GuardLock lock(TheControlPipe.SubscriberGuard);
  TheControlPipe.subscribers.erase(&subscriber_);
}

EventText Subscription::Next(const std::atomic<bool>& PipeStop) {
  const steady_clock::time_point deadline = steady_clock::now() + kPingAfter;
  GuardLock lock(TheControlPipe.SubscriberGuard);
  while (subscriber_.queue.empty() && !PipeStop && steady_clock::now() < deadline) {
    TheControlPipe.wake.WaitUntil(TheControlPipe.SubscriberGuard, deadline);
  }
  if (PipeStop) return nullptr;
  if (subscriber_.queue.empty()) return std::make_shared<const std::string>(kPing);
  EventText oldest = std::move(subscriber_.queue.front());
  subscriber_.queue.pop_front();
  return oldest;
}

void StreamEvents(const PipeConnection& client) {
  Subscription subscription;
  while (const EventText text = subscription.Next(*client.PipeStop)) {
    if (!WriteFrame(client.pipe, *text)) return;
  }
}

}  // namespace kestrelon

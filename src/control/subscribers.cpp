#include "control/subscribers.h"

#include "config/json.h"
#include "control/pipe_state.h"

namespace kestrelon {
namespace {

// Keeps a client that doesn't read from growing the service's memory.
constexpr std::size_t kMostQueuedEvents = 1000;

}  // namespace

bool HasSubscribers() {
  GuardLock lock(TheControlPipe.SubscriberGuard);
  return !TheControlPipe.subscribers.empty();
}

void PublishEvent(const std::string& text) {
  const auto shared = std::make_shared<const std::string>(text);
  GuardLock lock(TheControlPipe.SubscriberGuard);
  for (Subscriber* subscriber : TheControlPipe.subscribers) {
    if (subscriber->queue.size() >= kMostQueuedEvents) subscriber->queue.pop_front();
    subscriber->queue.push_back(shared);
  }
  TheControlPipe.wake.WakeAll();
}

void PublishConfigEvent(const std::string& word) {
  Json event;
  event["type"] = Json(word);
  PublishEvent(event.Dump(false));
}

}  // namespace kestrelon

#include "control/subscribers.h"

#include <memory>
#include <utility>

#include "config/json.h"
#include "control/pipe_state.h"

namespace kestrelon {
namespace {

// Keeps clients that don't read from growing the service's memory.
constexpr std::size_t kMostQueuedEvents = 1000;

}  // namespace

bool HasSubscribers() {
  GuardLock lock(TheControlPipe.SubscriberGuard);
  return TheControlPipe.subscribers != 0;
}

void PublishEvent(const std::string& text) {
  auto shared = std::make_shared<const std::string>(text);
  GuardLock lock(TheControlPipe.SubscriberGuard);
  if (TheControlPipe.subscribers == 0) return;
  if (TheControlPipe.events.size() >= kMostQueuedEvents) TheControlPipe.events.pop_front();
  TheControlPipe.events.push_back(std::move(shared));
  ++TheControlPipe.published;
  // Under the guard: whoever wakes comes to wait for it, and then takes a burst at one go. Without
  // it each would be asleep again before the next event, and a hundred wakings cost far more.
  TheControlPipe.wake.WakeAll();
}

void PublishConfigEvent(const std::string& word) {
  Json event;
  event["type"] = Json(word);
  PublishEvent(event.Dump(false));
}

}  // namespace kestrelon

#include "platform/wait.h"

#include <chrono>

#include "simulation/machine/machine.h"

namespace kestrelon::platform {

using simulation::TheMachine;
using simulation::WaitHub;

namespace {

// The platform's limit for one wait (MAXIMUM_WAIT_OBJECTS).
constexpr std::size_t kMostEvents = 64;

// The first set event, consumed if it is automatic; kWaitTimedOut if none is. Needs the hub's
// mutex.
int TakeSetEvent(std::initializer_list<Event*> events) {
  int index = 0;
  for (const Event* event : events) {
    if (event->state().Take()) return index;
    ++index;
  }
  return kWaitTimedOut;
}

}  // namespace

Event::Event(Reset reset) : state_(std::make_unique<EventState>()) {
  state_->automatic = reset == Reset::kAutomatic;
}

Event::~Event() = default;

void Event::Set() {
  WaitHub& hub = TheMachine().waits;
  const std::lock_guard lock(hub.mutex);
  state_->set = true;
  hub.changed.notify_all();
}

void Event::Clear() {
  const std::lock_guard lock(TheMachine().waits.mutex);
  state_->set = false;
}

int WaitForAny(std::initializer_list<Event*> events, std::uint32_t timeout_ms) {
  if (events.size() == 0 || events.size() > kMostEvents) return kWaitFailed;
  WaitHub& hub = TheMachine().waits;
  simulation::Clock& clock = TheMachine().clock;
  int taken = kWaitTimedOut;
  const auto is_set = [&] {
    taken = TakeSetEvent(events);
    return taken != kWaitTimedOut;
  };
  // On a held clock no time passes in which other threads could bring what they have to tell.
  if (clock.held()) {
    TheMachine().watches.WaitForWatchers();
    TheMachine().engine.WaitForNotifications();
  }
  std::unique_lock lock(hub.mutex);
  if (timeout_ms == kWaitForever) {
    hub.changed.wait(lock, is_set);
  } else if (clock.held()) {
    if (!is_set()) clock.Advance(timeout_ms);
  } else {
    hub.changed.wait_for(lock, std::chrono::milliseconds(timeout_ms), is_set);
  }
  return taken;
}

}  // namespace kestrelon::platform

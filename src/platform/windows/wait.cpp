#include "platform/wait.h"

#include <array>

#include "platform/windows/event_state.h"

namespace kestrelon::platform {

Event::Event(Reset reset) : state_(std::make_unique<EventState>()) {
  state_->handle =
      KernelHandle(CreateEventW(nullptr, reset == Reset::kManual ? TRUE : FALSE, FALSE, nullptr));
}

Event::~Event() = default;

void Event::Set() {
  SetEvent(state_->handle.get());
}

void Event::Clear() {
  ResetEvent(state_->handle.get());
}

int WaitForAny(std::initializer_list<Event*> events, std::uint32_t timeout_ms) {
  std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> handles{};
  if (events.size() > handles.size()) return kWaitFailed;
  DWORD count = 0;
  for (const Event* event : events) handles[count++] = event->state().handle.get();
  const DWORD result = WaitForMultipleObjects(count, handles.data(), FALSE, timeout_ms);
  if (result == WAIT_TIMEOUT) return kWaitTimedOut;
  // WAIT_OBJECT_0 is 0.
  return result < count ? static_cast<int>(result) : kWaitFailed;
}

}  // namespace kestrelon::platform

// Events that threads wait for.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>

namespace kestrelon::platform {

struct EventState;

// A waitable flag. All members may be called from any thread; Set never blocks. An Event that the
// platform could not create stays unset for ever and fails each wait.
class Event {
 public:
  enum class Reset { kAutomatic, kManual };

  explicit Event(Reset reset);
  ~Event();
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  void Set();
  void Clear();

  // For the implementation of waits.
  EventState& state() const { return *state_; }

 private:
  std::unique_ptr<EventState> state_;
};

inline constexpr std::uint32_t kWaitForever = 0xFFFFFFFF;
inline constexpr int kWaitTimedOut = -1;
inline constexpr int kWaitFailed = -2;

// Blocks until one of the events is set or the time has passed; gives the index of the first set
// event in list order (which an automatic event thereby consumes), kWaitTimedOut or kWaitFailed.
int WaitForAny(std::initializer_list<Event*> events, std::uint32_t timeout_ms);

}  // namespace kestrelon::platform

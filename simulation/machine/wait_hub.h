// What waiting threads sleep on: one condition for all events and watches of the machine.
#pragma once

#include <condition_variable>
#include <mutex>

namespace kestrelon::platform {

// Guarded by the hub's mutex.
struct EventState {
  bool automatic = false;
  bool set = false;

  // What a wait that ends with this event does; whether it does.
  bool Take() {
    const bool was_set = set;
    if (automatic) set = false;
    return was_set;
  }
};

}  // namespace kestrelon::platform

namespace simulation {

struct WaitHub {
  std::mutex mutex;  // guards the flags of all events and watches
  std::condition_variable changed;
};

}  // namespace simulation

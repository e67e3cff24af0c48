// What waiting threads sleep on: one condition for all events of the machine.
#pragma once

#include <condition_variable>
#include <mutex>

namespace simulation {

struct WaitHub {
  std::mutex mutex;  // guards the flags of all events
  std::condition_variable changed;
};

}  // namespace simulation

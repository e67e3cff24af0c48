// The standing of the process on the machine.
#pragma once

#include <atomic>

namespace simulation {

struct ProcessToken {
  std::atomic<bool> elevated = true;
  std::atomic<bool> local_system = true;
};

}  // namespace simulation

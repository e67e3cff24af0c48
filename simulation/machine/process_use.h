// What the process uses of the machine, as the machine tells it: figures that a test sets.
#pragma once

#include <atomic>
#include <cstdint>

namespace simulation {

struct ProcessUse {
  std::atomic<std::uint64_t> working_set_bytes = 12U << 20U;
  std::atomic<std::uint64_t> private_bytes = 8U << 20U;
  std::atomic<std::uint32_t> handles = 100;
};

}  // namespace simulation

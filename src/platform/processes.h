// Processes, the own one first.
#pragma once

#include <cstdint>

#include "platform/codes.h"

namespace kestrelon::platform {

struct MemoryUse {
  std::uint64_t working_set_bytes = 0;
  std::uint64_t private_bytes = 0;
};

// What this process uses.
[[nodiscard]] Code OwnMemoryUse(MemoryUse& use);
[[nodiscard]] Code OwnHandleCount(std::uint32_t& count);

}  // namespace kestrelon::platform

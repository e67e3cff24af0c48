// Which verdicts are reported as net events.
#pragma once

#include <cstdint>

#include "platform/codes.h"
#include "simulation/engine/connection.h"
#include "simulation/engine/layer_fields.h"

namespace simulation {

// The machine's options, by the numbers of platform/net_events.h. The platform's further ones
// aren't modelled.
struct NetEventOptions {
  bool collect = true;
  std::uint32_t keywords = 0;

  // Refuse unknown numbers, and values that the option can't have.
  [[nodiscard]] platform::Code Set(std::uint32_t option, std::uint32_t value);
  [[nodiscard]] platform::Code Get(std::uint32_t option, std::uint32_t& value) const;

  // Whether the verdict on a connection at a layer is reported.
  [[nodiscard]] bool Report(const Layer& layer, const Connection& connection, bool permit) const;
};

}  // namespace simulation

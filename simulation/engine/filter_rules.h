// What the engine accepts as a filter, and the weight that it gives it.
#pragma once

#include <cstdint>

#include "platform/codes.h"
#include "platform/wfp_records.h"

namespace simulation {

// Checks everything that a filter says by itself; what it refers to is the caller's to check.
// Mistakes are found in the order name, flags, layer, weight, action, conditions.
[[nodiscard]] kestrelon::platform::Code ValidateFilter(const kestrelon::platform::Filter& filter);

// The weight by which the filter is ranked in its sublayer: an explicit 64-bit one as it is, a
// range of 0..15 in the top four bits, and below it what follows from the conditions.
[[nodiscard]] std::uint64_t EffectiveWeight(const kestrelon::platform::Filter& filter);

}  // namespace simulation

// wfpctl's words for what the engine says.
#pragma once

#include <string>

#include "simulation/bench/wfpctl_arguments.h"

namespace simulation {

// "11", "0x1000000000000" for a 64-bit weight, "auto" where the engine chooses.
std::wstring WeightText(const Value& weight);

// The number as the platform's users know it, with a word on the ones that are met here.
std::wstring CodeText(Code code);

// One filter on one line: key, layer, weight, action, flags, number of conditions, name.
std::wstring FilterLine(const Filter& filter);

}  // namespace simulation

// What benchmarks of filters have in common: a large configuration and the measuring.
#pragma once

#include <functional>
#include <string>

#include "config/config.h"

namespace kestrelon {

// Path of an application by its number.
[[nodiscard]] std::wstring AppPath(int i);

// 5,000 rules, half of them for one of `apps` applications each, and a list of 25,000 networks; all
// for both directions and families.
[[nodiscard]] Config LargeConfig(int apps);

// Processor time of the best of some rounds: what the code takes when nothing else runs.
[[nodiscard]] double Milliseconds(const std::function<void()>& work);

// One line: a time, the same without the simulation's share, and as a multiple of a bound of the
// same run.
void Print(const char* what, double milliseconds, double own, const char* bound, double bound_ms);

}  // namespace kestrelon

// The parts of a check: each file of cases is one, with a heading in the report and a process of
// its own.
#pragma once

#include <string>

namespace kestrelon::check {

// Where an area stands among the others. The platform comes first; what installs the product
// follows, in an order in which each finds what it needs.
[[nodiscard]] int AreaOrder(const std::string& file);

// What the report calls it.
[[nodiscard]] std::string AreaHeading(const std::string& file);

// Whether its cases put Kestrelon to work, and so need the filtering engine.
[[nodiscard]] bool AreaNeedsEngine(const std::string& file);

}  // namespace kestrelon::check

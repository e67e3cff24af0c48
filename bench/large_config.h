// The configurations that benchmarks have in common.
#pragma once

#include <string>

#include "config/config.h"

namespace kestrelon {

struct ConfigSize {
  int rules = 5000;
  int apps = 2000;
  int networks = 25000;
};

// Path of an application by its number.
[[nodiscard]] std::wstring AppPath(int i);

// What an engine has to do most with: rules, half of them for one of the applications each, and a
// list of networks; all for both directions and families. The applications themselves are not
// listed.
[[nodiscard]] Config ConfigOfNetworks(const ConfigSize& size);

// What a file is long with: applications with all that was learnt of them, and rules with several
// addresses.
[[nodiscard]] Config ConfigOfApps(const ConfigSize& size);

}  // namespace kestrelon

// How the service itself gets out, for what it fetches.
#pragma once

#include <vector>

#include "config/config.h"

namespace kestrelon {

// Appends a rule of this name that lets the service's own executable, and nothing else, out to TCP
// port 443. None when the executable's path can't be told: a rule without an application would be
// for all of them.
void AppendOwnWayOut(const wchar_t* name, std::vector<RuleEntry>& rules);

}  // namespace kestrelon

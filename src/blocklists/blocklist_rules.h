// The rules that blocklists become.
#pragma once

#include <vector>

#include "config/config.h"

namespace kestrelon {

// Appends the block rules of the configuration's lists and of the user's own networks, and the rule
// that lets the service fetch the lists.
void BlocklistRules(const Config& config, std::vector<RuleEntry>& rules);

}  // namespace kestrelon

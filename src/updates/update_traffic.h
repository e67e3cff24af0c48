// The way out to the update host, which exists only while it is wanted.
#pragma once

#include <vector>

#include "base/guard.h"
#include "config/config.h"
#include "core/core_state.h"

namespace kestrelon {

// Asks for the update rule and waits until it is in force: for five seconds at most, and not while
// the service stops. There is no failure: without the rule the transfer fails by itself. The loop
// applies the rule under ConfigGuard, which nobody may hold who waits for this.
void NeedUpdateTraffic() EXCLUDES(ConfigGuard);

// The transfer is over.
void EndUpdateTraffic();

// Appends the rule that lets the service's own executable out to TCP port 443, if updates are
// wanted and protection is on. Gives what UpdateRuleInstalled is to become once filters made of
// these rules are in force: whether nothing keeps a transfer back then.
[[nodiscard]] bool UpdateTrafficRules(const Config& config, std::vector<RuleEntry>& rules);

// Whether the filters in force lack a rule that is wanted, or hold one that is not any more.
[[nodiscard]] bool UpdateRuleIsDue(const Config& config);

}  // namespace kestrelon

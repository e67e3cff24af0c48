// The rule book: which filters a configuration means.
//
// Precedence is the weight alone (filter_keys.h): any block rule or blocked application beats any
// permission, loopback passes even where a block rule would match it, a held-back file is blocked
// on loopback as well, and any permission beats the default, which blocks everything. Nothing gets
// through without a rule, not DHCP, not DNS, not ICMP.
#pragma once

#include <string>
#include <vector>

#include "config/config.h"
#include "filtering/filter_plan.h"
#include "filtering/filter_writer.h"

namespace kestrelon {

// Gives the complete set of filters for an effective configuration and its compiled entries to the
// sink: block all, service blocks, loopback, rules, entries. Does not look at `config.enabled`, and
// does not touch the engine. A rule or entry that makes no sense costs itself and a warning. False
// only when the sink gave false.
[[nodiscard]] bool BuildFilters(const Config& config, const std::vector<PlanEntry>& entries,
                                std::vector<std::wstring>& warnings, const FilterSink& sink);

}  // namespace kestrelon

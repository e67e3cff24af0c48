// From the configuration as the user has it to the one that filters are made of.
#pragma once

#include "config/config.h"
#include "filtering/filter_plan.h"

namespace kestrelon {

// The effective configuration: `plan.dns_servers` in place of each "$dns"; a rule that has no
// remote address left is switched off with a warning in `plan`. While protection is on, the rules
// of the blocklists and of the active modules are appended. The input stays as it is.
//
// What the modules' files are joins the fingerprint, and why one stays off the warnings, in either
// case. May hash and verify their files.
[[nodiscard]] Config ExpandRules(const Config& config, FilterPlan& plan);

}  // namespace kestrelon

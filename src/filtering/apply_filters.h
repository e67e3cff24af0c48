// The swap of the whole set of filters in one transaction.
#pragma once

#include <string>

#include "config/config.h"
#include "filtering/filter_engine.h"
#include "filtering/filter_plan.h"

namespace kestrelon {

// Puts the filters of an effective configuration and its plan in place of all that are installed;
// a configuration that is not enabled has none. There is no moment without protection: the engine
// holds the old set until the new one is complete, and keeps it on failure, together with
// FilterRecord and FilterTags. Findings go into `plan.warnings`. May wait for another user of the
// engine.
[[nodiscard]] bool ApplyFilters(FilterEngine& engine, const Config& config, FilterPlan& plan,
                                std::wstring& error)
    EXCLUDES(engine.EngineGuard, engine.RecordGuard);

}  // namespace kestrelon

// What the engine holds of the product's filters.
#pragma once

#include <string>
#include <vector>

#include "base/guid.h"
#include "filtering/filter_engine.h"

namespace kestrelon {

// Enumerates the filters that name the product's provider or sublayer, boot-time ones left out,
// and fills `keys` and, unless it is null, `signatures` afresh. On failure both hold what was read
// before it.
[[nodiscard]] bool ReadFilters(FilterEngine& engine, std::vector<Guid>& keys, std::wstring& error,
                               FilterRecordTable* signatures = nullptr)
    REQUIRES(engine.EngineGuard);

}  // namespace kestrelon

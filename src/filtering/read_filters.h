// What the engine holds of the product's filters.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/guid.h"
#include "filtering/filter_engine.h"

namespace kestrelon {

// Gives `visit` each filter that names the product's provider or sublayer, boot-time ones left out,
// as they stood at the beginning. The records are the visitor's to look at during the call alone.
// False when the enumeration fails; some filters may have been visited then.
[[nodiscard]] bool VisitFilters(FilterEngine& engine,
                                const std::function<void(const platform::Filter&)>& visit,
                                std::wstring& error) REQUIRES(engine.EngineGuard);

// Fills `keys` and, unless it is null, `signatures` afresh from the same filters. A key that comes
// twice counts once in `signatures`, with its last signature. On failure both hold what was read
// before it.
[[nodiscard]] bool ReadFilters(FilterEngine& engine, std::vector<Guid>& keys, std::wstring& error,
                               FilterRecordTable* signatures = nullptr)
    REQUIRES(engine.EngineGuard);

// The record of the filters of these keys as the engine holds them; one that it doesn't show is
// left out, for the audit to miss. On failure `record` is unchanged.
[[nodiscard]] bool ReadRecord(FilterEngine& engine, const std::vector<Guid>& keys,
                              FilterRecordTable& record, std::wstring& error)
    REQUIRES(engine.EngineGuard);

}  // namespace kestrelon

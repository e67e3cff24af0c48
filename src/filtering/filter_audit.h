// Whether the engine still holds what this process put there.
#pragma once

#include <string>

#include "filtering/filter_engine.h"

namespace kestrelon {

enum class AuditResult { kEngineLost = -1, kDiffers = 0, kClean = 1 };

// Compares the engine's filters, sublayer and boot-time filters with the record. Stops at the first
// difference, which `reason` then tells. An enumeration that fails is read as a lost session, not
// as tampering. Blocks on the engine.
[[nodiscard]] AuditResult FilterAudit(FilterEngine& engine, std::wstring& reason)
    EXCLUDES(engine.EngineGuard);

}  // namespace kestrelon

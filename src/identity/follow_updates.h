// Extends the entry of an application that moved to the directory of its next version.
#pragma once

#include <string>

#include "base/guard.h"
#include "core/core_state.h"

namespace kestrelon {

// The worker that follows what QueueFollow hands it.
void StartFollowWorker();
// Waits for the path in work. Not to be called under ConfigGuard, which the worker takes.
void StopFollowWorker() EXCLUDES(ConfigGuard);

// Looks whether a blocked program is the next version of a listed application, by place, publisher
// and product, and then lists it as well. Verifies signatures: may take seconds.
void FollowUpdate(const std::wstring& path) EXCLUDES(ConfigGuard);

// Takes out of the live configuration the entries of versions whose file is gone while that of
// another version is there. Whether any was removed; saving is the caller's.
[[nodiscard]] bool PruneOldVersions() REQUIRES(ConfigGuard);

}  // namespace kestrelon

// Watches the directories of permitted programs, so that a change is met within moments instead of
// by the next periodic check, which stays as the net under it.
#pragma once

#include <string>
#include <vector>

#include "platform/wait.h"

namespace kestrelon {

// Makes the watched directories fit the parents of `paths`; `event` is set on each change in one of
// them, after Core.DirectoryChangedHook has seen it and the cached identities there are stale. The
// system's own directory is not watched. Returns once the watches stand. An empty list stops
// everything. Does nothing when neither list nor event changed and no directory was lost. Waits for
// running watch threads: not to be called under EngineGuard, nor from within the hook.
void SyncFileWatch(const std::vector<std::wstring>& paths, platform::Event* event);

}  // namespace kestrelon

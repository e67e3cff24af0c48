// The pipe on which running modules may talk to the service. Who a client is, is not what it says
// but which process it is: one that the supervisor started or took over, or nobody.
#pragma once

#include <functional>

#include "base/guard.h"
#include "config/json.h"
#include "modules/module_processes.h"

namespace kestrelon {

inline constexpr const wchar_t* kModulePipeName = L"\\\\.\\pipe\\Kestrelon.Modules";

// What answers the command "status" of a module that may ask it. Called on client threads, with no
// guard held.
using ModuleStatusProvider = std::function<Json()>;
void SetModuleStatusProvider(ModuleStatusProvider provider) EXCLUDES(ModuleGuard);

// Starts the server; does nothing when it runs.
void OpenModulePipe() EXCLUDES(ModuleGuard);

// Stops it and gives its clients up to three seconds to leave; does nothing when it doesn't run.
void CloseModulePipe() EXCLUDES(ModuleGuard);

}  // namespace kestrelon

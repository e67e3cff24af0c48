// The pipe on which running modules may talk to the service. Who a client is, is not what it says
// but which process it is: one that the supervisor started or took over, or nobody.
#pragma once

#include "modules/module_processes.h"

namespace kestrelon {

inline constexpr const wchar_t* kModulePipeName = L"\\\\.\\pipe\\Kestrelon.Modules";

// Starts the server; does nothing when it runs. Opened and closed by one thread at a time. A
// failure is logged and leaves the pipe closed.
void OpenModulePipe() EXCLUDES(ModuleGuard);

// Stops it and gives its clients up to three seconds to leave, but for those that ask for the
// status just now: they may wait for the caller's guards. Does nothing when it doesn't run.
void CloseModulePipe() EXCLUDES(ModuleGuard);

}  // namespace kestrelon

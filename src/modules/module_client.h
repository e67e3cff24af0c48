// One connection of the module pipe, on a thread of its own.
#pragma once

#include <functional>

#include "base/guard.h"
#include "config/json.h"
#include "control/pipe_listener.h"
#include "modules/module_processes.h"

namespace kestrelon {

// What answers the command "status" of a module that may ask it. Called on client threads, with no
// guard held. It may wait for a guard under which the pipe is closed: closing it doesn't wait then.
using ModuleStatusProvider = std::function<Json()>;
void SetModuleStatusProvider(ModuleStatusProvider provider) EXCLUDES(ModuleGuard);

// Answers the requests of a module until it leaves, asks too often or the pipe stops. Any other
// process than a module's gets no answer at all. What the module may ask is settled once, when it
// comes.
void ModuleClient(PipeConnection& client) EXCLUDES(ModuleGuard);

}  // namespace kestrelon

// Keeps the modules running that are to run, in each session with a user, and no others.
#pragma once

#include "base/guard.h"
#include "config/config.h"
#include "core/core_state.h"
#include "modules/module_processes.h"

namespace kestrelon {

// One pass: compares what should run with what runs and acts on the difference, without waiting for
// anything that it started or ended. Also opens the module pipe while a module is wanted, and keeps
// the exceptions in the operating system's firewall. Once the service stops it does nothing.
void SuperviseModules(const Config& config) REQUIRES(ConfigGuard) EXCLUDES(ModuleGuard);

}  // namespace kestrelon

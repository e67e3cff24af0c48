// Finding a module that runs already, as it does after the service was restarted.
#pragma once

#include <cstdint>

#include "modules/module_processes.h"
#include "modules/verify_module.h"

namespace kestrelon {

// Looks for a process of exactly the module's file in a session. False, with `record` as it was,
// when there is none, or none that can be opened. Lists all processes of the machine.
[[nodiscard]] bool FindInSession(const ModuleStatus& status, std::uint32_t session,
                                 ModuleProcess& record);

}  // namespace kestrelon

// Starting a module in a user's session.
#pragma once

#include <cstdint>
#include <string>

#include "modules/module_processes.h"
#include "modules/verify_module.h"

namespace kestrelon {

// Starts a module's program as the session's user, on the desktop that the user sees, and doesn't
// wait for it. False, with `record` as it was and the reason in `error`, when it can't be started.
[[nodiscard]] bool StartInSession(const ModuleStatus& status, std::uint32_t session,
                                  ModuleProcess& record, std::wstring& error);

}  // namespace kestrelon

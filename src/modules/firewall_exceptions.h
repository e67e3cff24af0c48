// Exceptions for modules in the operating system's own firewall, which would otherwise drop what
// the rules of an inbound module let through.
#pragma once

#include <string>

#include "modules/module_processes.h"
#include "modules/verify_module.h"

namespace kestrelon {

// Takes the module's exceptions away and, with `add`, makes those that its manifest asks for. False
// when the firewall can't be reached or refused one of them.
[[nodiscard]] bool SyncFirewallException(const ModuleStatus& status, bool add);

// Takes away every exception of the product's, also those of runs before this one; gives how many.
int RemoveFirewallExceptions() EXCLUDES(ModuleGuard);

// Whether the exceptions of a module were last asked to be there; and that they now were, or were
// asked away.
[[nodiscard]] bool FirewallExceptionApplied(const std::wstring& module_id) EXCLUDES(ModuleGuard);
void NoteFirewallException(const std::wstring& module_id, bool applied) EXCLUDES(ModuleGuard);

}  // namespace kestrelon

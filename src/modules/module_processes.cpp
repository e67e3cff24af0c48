#include "modules/module_processes.h"

#include <algorithm>

namespace kestrelon {

Guard ModuleGuard("ModuleGuard", GuardRank::kSubsystem);
std::vector<ModuleProcess> ModuleProcesses;

std::uint32_t ModuleProcessCount() {
  GuardLock lock(ModuleGuard);
  return static_cast<std::uint32_t>(ModuleProcesses.size());
}

std::uint32_t ModuleProcessCount(std::wstring_view module_id) {
  GuardLock lock(ModuleGuard);
  return static_cast<std::uint32_t>(std::ranges::count(
      ModuleProcesses, module_id,
      [](const ModuleProcess& process) -> std::wstring_view { return process.module_id; }));
}

void DropModuleProcesses() {
  GuardLock lock(ModuleGuard);
  ModuleProcesses.clear();
}

}  // namespace kestrelon

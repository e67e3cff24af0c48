// The module processes that the service supervises: what the supervisor and the module pipe share.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/guard.h"
#include "platform/processes.h"

namespace kestrelon {

// One for each module and session. Holding on to the process keeps its id from being given to a
// stranger.
struct ModuleProcess {
  std::wstring module_id;
  std::uint32_t session = 0;
  std::uint32_t process_id = 0;
  platform::Process process;
  std::vector<std::wstring> permissions;  // as its manifest had them when the record was made
};

// Guards what the supervisor keeps between its passes. Inner to ConfigGuard.
extern Guard ModuleGuard;

// In the order in which they were started or taken over.
extern std::vector<ModuleProcess> ModuleProcesses GUARDED_BY(ModuleGuard);

// How many there are; and how many of one module, in all sessions.
[[nodiscard]] std::uint32_t ModuleProcessCount() EXCLUDES(ModuleGuard);
[[nodiscard]] std::uint32_t ModuleProcessCount(std::wstring_view module_id) EXCLUDES(ModuleGuard);

// Lets go of all of them. The processes run on, and are taken over by the next start.
void DropModuleProcesses() EXCLUDES(ModuleGuard);

}  // namespace kestrelon

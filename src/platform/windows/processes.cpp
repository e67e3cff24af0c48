#include "platform/processes.h"

#include "platform/windows/windows_headers.h"

#include <psapi.h>

namespace kestrelon::platform {

Code OwnMemoryUse(MemoryUse& use) {
  PROCESS_MEMORY_COUNTERS_EX counters{};
  counters.cb = sizeof counters;
  // The call takes the extended form by its size, under the type of the plain one.
  if (!K32GetProcessMemoryInfo(GetCurrentProcess(),
                               reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                               sizeof counters)) {
    return GetLastError();
  }
  use = {counters.WorkingSetSize, counters.PrivateUsage};
  return kSuccess;
}

Code OwnHandleCount(std::uint32_t& count) {
  DWORD handles = 0;
  if (!GetProcessHandleCount(GetCurrentProcess(), &handles)) return GetLastError();
  count = handles;
  return kSuccess;
}

}  // namespace kestrelon::platform

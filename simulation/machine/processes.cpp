#include "platform/processes.h"

#include "simulation/machine/machine.h"

namespace kestrelon::platform {

using simulation::TheMachine;

Code OwnMemoryUse(MemoryUse& use) {
  if (const Code fault = TheMachine().faults.Next("OwnMemoryUse")) return fault;
  const simulation::ProcessUse& process = TheMachine().process_use;
  use = {process.working_set_bytes, process.private_bytes};
  return kSuccess;
}

Code OwnHandleCount(std::uint32_t& count) {
  if (const Code fault = TheMachine().faults.Next("OwnHandleCount")) return fault;
  count = TheMachine().process_use.handles;
  return kSuccess;
}

}  // namespace kestrelon::platform

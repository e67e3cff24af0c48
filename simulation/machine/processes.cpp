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

Code ListProcesses(std::vector<RunningProcess>& processes) {
  if (const Code fault = TheMachine().faults.Next("ListProcesses")) return fault;
  processes.clear();
  for (const simulation::SimulatedProcess& process : TheMachine().processes.List()) {
    const std::size_t name = process.path.find_last_of(L'\\') + 1;
    processes.push_back({process.id, process.path.substr(name)});
  }
  return kSuccess;
}

Code SessionOfProcess(std::uint32_t process_id, std::uint32_t& session) {
  if (const Code fault = TheMachine().faults.Next("SessionOfProcess")) return fault;
  return TheMachine().processes.Session(process_id, session);
}

void CloseProcess(std::uintptr_t process) {
  TheMachine().processes.Close(process);
}

Code OpenProcessById(std::uint32_t process_id, std::uint32_t access, Process& process) {
  if (const Code fault = TheMachine().faults.Next("OpenProcessById")) return fault;
  std::uintptr_t handle = 0;
  const Code code = TheMachine().processes.Open(process_id, access, handle);
  if (code == kSuccess) process.Adopt(handle);
  return code;
}

Code ProcessImage(const Process& process, std::wstring& path) {
  if (const Code fault = TheMachine().faults.Next("ProcessImage")) return fault;
  return TheMachine().processes.Image(process.handle(), path);
}

bool HasProcessEnded(const Process& process) {
  TheMachine().faults.Announce("HasProcessEnded");
  return TheMachine().processes.HasEnded(process.handle());
}

Code AwaitProcess(const Process& process, std::uint32_t timeout_ms) {
  if (const Code fault = TheMachine().faults.Next("AwaitProcess")) return fault;
  return TheMachine().processes.Await(process.handle(), timeout_ms);
}

Code ProcessExitCode(const Process& process, std::uint32_t& exit_code) {
  if (const Code fault = TheMachine().faults.Next("ProcessExitCode")) return fault;
  return TheMachine().processes.ExitCode(process.handle(), exit_code);
}

Code EndProcess(const Process& process, std::uint32_t exit_code) {
  if (const Code fault = TheMachine().faults.Next("EndProcess")) return fault;
  return TheMachine().processes.Terminate(process.handle(), exit_code);
}

Code StartProgram(const ProgramStart& start, StartedProgram& started) {
  if (const Code fault = TheMachine().faults.Next("StartProgram")) return fault;
  simulation::ProcessTable& processes = TheMachine().processes;
  std::uint32_t id = 0;
  std::uintptr_t handle = 0;
  const Code code = processes.Launch({.path = start.application,
                                      .command_line = start.command_line,
                                      .directory = start.directory,
                                      .desktop = start.desktop,
                                      .flags = start.flags},
                                     id, handle);
  if (code != kSuccess) return code;
  if (const Code lost = processes.Act(start.application, id)) return lost;
  started.process_id = id;
  started.process.Adopt(handle);
  return kSuccess;
}

}  // namespace kestrelon::platform

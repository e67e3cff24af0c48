#include "platform/change_notification.h"

#include "simulation/machine/machine.h"

namespace kestrelon::platform {

using simulation::TheMachine;

void CloseWatch(std::uintptr_t handle) {
  TheMachine().watches.Close(handle);
}

Code WatchDirectory(const std::wstring& directory, std::uint32_t filter, DirectoryWatch& watch) {
  if (const Code fault = TheMachine().faults.Next("WatchDirectory")) return fault;
  std::uintptr_t handle = 0;
  const Code code = TheMachine().files.Watch(directory, filter, handle);
  if (code == kSuccess) watch.Adopt(handle);
  return code;
}

Code ContinueWatch(const DirectoryWatch& watch) {
  if (const Code fault = TheMachine().faults.Next("ContinueWatch")) return fault;
  return TheMachine().watches.Continue(watch.handle());
}

int WaitForChange(const Event& stop, const std::vector<DirectoryWatch>& watches) {
  std::vector<std::uintptr_t> handles;
  for (const DirectoryWatch& watch : watches) handles.push_back(watch.handle());
  return TheMachine().watches.Wait(stop, handles);
}

}  // namespace kestrelon::platform

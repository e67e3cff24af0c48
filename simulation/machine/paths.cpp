#include "platform/paths.h"

#include "simulation/machine/letter_case.h"
#include "simulation/machine/machine.h"

namespace kestrelon::platform {
namespace {

using simulation::FoldCase;
using simulation::TheMachine;

// Room that callers of the platform give: characters of all roots with their nulls, and of a
// device.
constexpr std::size_t kDriveListRoom = 512;
constexpr std::size_t kDeviceRoom = 1024;

// The value of a name in a table without regard to case; null when there is none.
const std::wstring* FindValue(const std::map<std::wstring, std::wstring>& table,
                              const std::wstring& name) {
  const std::wstring folded = FoldCase(name);
  for (const auto& [key, value] : table) {
    if (FoldCase(key) == folded) return &value;
  }
  return nullptr;
}

}  // namespace

Code ProgramDataFolder(std::wstring& path) {
  if (const Code fault = TheMachine().faults.Next("ProgramDataFolder")) return fault;
  path = TheMachine().environment.program_data;
  return kSuccess;
}

Code ExecutableFile(std::wstring& path) {
  if (const Code fault = TheMachine().faults.Next("ExecutableFile")) return fault;
  path = TheMachine().environment.executable;
  return kSuccess;
}

Code ExpandEnvironment(const std::wstring& text, std::wstring& expanded) {
  if (const Code fault = TheMachine().faults.Next("ExpandEnvironment")) return fault;
  std::wstring result;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t end = text[at] == L'%' ? text.find(L'%', at + 1) : std::wstring::npos;
    const std::wstring* const value =
        end == std::wstring::npos
            ? nullptr
            : FindValue(TheMachine().environment.variables, text.substr(at + 1, end - at - 1));
    if (value != nullptr) {
      result += *value;
      at = end + 1;
    } else {
      // An unknown name stays with its first sign; its second one may begin the next name.
      result += text[at++];
    }
  }
  expanded = std::move(result);
  return kSuccess;
}

Code LogicalDrives(std::vector<std::wstring>& roots) {
  if (const Code fault = TheMachine().faults.Next("LogicalDrives")) return fault;
  std::vector<std::wstring> list;
  std::size_t room = 0;
  for (const auto& [drive, device] : TheMachine().environment.drives) {
    list.push_back(drive + L"\\");
    room += list.back().size() + 1;
  }
  if (room > kDriveListRoom) return kInsufficientBuffer;
  roots = std::move(list);
  return kSuccess;
}

Code DeviceOfDrive(const std::wstring& drive, std::wstring& device) {
  if (const Code fault = TheMachine().faults.Next("DeviceOfDrive")) return fault;
  const std::wstring* const value = FindValue(TheMachine().environment.drives, drive);
  if (value == nullptr) return kFileNotFound;
  if (value->size() >= kDeviceRoom) return kInsufficientBuffer;
  device = *value;
  return kSuccess;
}

}  // namespace kestrelon::platform

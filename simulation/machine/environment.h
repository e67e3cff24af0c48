// The surroundings of the process that do not change while it runs. A test changes them before the
// product starts; no lock guards them.
#pragma once

#include <map>
#include <string>

namespace simulation {

struct Environment {
  std::map<std::wstring, std::wstring> variables = {
      {L"SystemRoot", L"C:\\Windows"},
      {L"SystemDrive", L"C:"},
      {L"windir", L"C:\\Windows"},
      {L"ProgramData", L"C:\\ProgramData"},
      {L"ProgramFiles", L"C:\\Program Files"},
      {L"ProgramFiles(x86)", L"C:\\Program Files (x86)"},
      {L"TEMP", L"C:\\Windows\\Temp"},
  };
  std::map<std::wstring, std::wstring> drives = {
      {L"C:", L"\\Device\\HarddiskVolume3"},
      {L"D:", L"\\Device\\HarddiskVolume4"},
  };
  std::wstring program_data = L"C:\\ProgramData";
  std::wstring executable = L"C:\\Program Files\\Kestrelon\\KestrelonSvc.exe";
  bool engine_has_newest_events = true;  // Windows 10 1809 and later
};

}  // namespace simulation

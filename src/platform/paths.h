// Where things are on this machine. Any thread.
#pragma once

#include <string>
#include <vector>

#include "platform/codes.h"

namespace kestrelon::platform {

// The folder for program data of the machine (FOLDERID_ProgramData), without a closing backslash.
[[nodiscard]] Code ProgramDataFolder(std::wstring& path);

// The full path of the running executable.
[[nodiscard]] Code ExecutableFile(std::wstring& path);

// Replaces "%NAME%" by the environment's values; unknown names stay as they are.
[[nodiscard]] Code ExpandEnvironment(const std::wstring& text, std::wstring& expanded);

// The roots of the machine's drives, each like "C:\". A list that does not fit 512 characters
// counts as a failure.
[[nodiscard]] Code LogicalDrives(std::vector<std::wstring>& roots);

// The device that a drive name like "C:" stands for, such as "\Device\HarddiskVolume1"; at most
// 1024 characters.
[[nodiscard]] Code DeviceOfDrive(const std::wstring& drive, std::wstring& device);

}  // namespace kestrelon::platform

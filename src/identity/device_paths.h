// From the paths that the filtering engine reports to those that people and rules use.
#pragma once

#include <string>

namespace kestrelon {

// A device path such as "\device\harddiskvolume1\x.exe" as a Win32 path in its final form; the
// unchanged text when no drive stands for its device. Answers are kept for up to 2000 paths, so
// that a repeated event costs no look at volumes and files. Any thread.
[[nodiscard]] std::wstring DeviceToWin32(const std::wstring& device_path);

}  // namespace kestrelon

// The names in the directory of updates that mean something.
#pragma once

#include <string>
#include <string_view>

namespace kestrelon {

inline constexpr const wchar_t* kUpdateHelperName = L"KestrelonSvc-update.exe";
inline constexpr const wchar_t* kInstallLogName = L"install.log";

// The name that a downloaded installer gets: the text behind the last "/" of its address.
[[nodiscard]] std::wstring InstallerName(std::wstring_view url);

// Whether an installer may have a name: that of one plain file, which no path, stream, device
// pattern or variable is hidden in, and not the helper's own, which would take the installer's
// place.
[[nodiscard]] bool IsInstallerName(std::wstring_view name);

}  // namespace kestrelon

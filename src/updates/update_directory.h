// The directory of downloaded installers.
#pragma once

#include <string>

namespace kestrelon {

// Its full path, without a closing backslash.
[[nodiscard]] std::wstring UpdateDirectory();

// Deletes the files in it but the installer's last log. Failures are ignored.
void CleanUpdateDirectory();

}  // namespace kestrelon

// The product's own directory.
#pragma once

#include <string>

namespace kestrelon {

// "Kestrelon" under the machine's program data, without a closing backslash. Asked of the platform
// each time: it is needed before anything that could keep it.
[[nodiscard]] std::wstring DataDir();

// Makes the directory and closes it to all but SYSTEM and administrators. Failures are silent: the
// service goes on under whatever access the directory has.
void SecureDataDir();

}  // namespace kestrelon

// Application ids: how the engine names a program.
#pragma once

#include <string>

#include "platform/codes.h"
#include "simulation/engine/wire.h"

namespace simulation {

// The id of the program at a full path, whether or not it exists: the lower-case device path in
// UTF-16 with its closing null.
[[nodiscard]] kestrelon::platform::Code AppIdOfPath(const std::wstring& path, Bytes& app_id);

// The same, for an existing file only.
[[nodiscard]] kestrelon::platform::Code AppIdOfExistingFile(const std::wstring& path,
                                                            Bytes& app_id);

// The id under which the engine sees connections of the kernel.
Bytes AppIdOfKernel();

}  // namespace simulation

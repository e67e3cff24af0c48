// How the filtering engine names a program.
#pragma once

#include <string>

#include "platform/wfp_records.h"

namespace kestrelon {

// The engine's identifier for a program: its path on the device, in lower case, as UTF-16 with a
// closing null. "System" is the kernel. A file that is not there yet gets the identifier that it
// will have. False, with `app_id` unchanged, when the path stands for no device. May open the file.
[[nodiscard]] bool AppIdFor(const std::wstring& path, platform::Bytes& app_id);

}  // namespace kestrelon

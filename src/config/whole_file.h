// A whole file in memory.
#pragma once

#include <cstdint>
#include <string>

#include "platform/codes.h"

namespace kestrelon {

// Reads a file of fewer than `too_large` bytes, in one read. A file that is larger, or that ends
// early, fails with the code of success: the platform reported none. `bytes` is changed on success
// only.
[[nodiscard]] bool ReadWholeFile(const std::wstring& path, std::uint32_t too_large,
                                 std::string& bytes, platform::Code& code);

}  // namespace kestrelon

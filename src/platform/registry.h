// Values below HKEY_LOCAL_MACHINE.
#pragma once

#include <cstdint>
#include <string>

#include "platform/codes.h"

namespace kestrelon::platform {

// Reads a REG_DWORD; any other type of value is a failure.
[[nodiscard]] Code ReadRegistryDword(const std::wstring& key, const std::wstring& name,
                                     std::uint32_t& value);

// Writes a REG_DWORD, making the key if needed.
[[nodiscard]] Code WriteRegistryDword(const std::wstring& key, const std::wstring& name,
                                      std::uint32_t value);

}  // namespace kestrelon::platform

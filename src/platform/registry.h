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

// The same for a REG_QWORD.
[[nodiscard]] Code ReadRegistryQword(const std::wstring& key, const std::wstring& name,
                                     std::uint64_t& value);
[[nodiscard]] Code WriteRegistryQword(const std::wstring& key, const std::wstring& name,
                                      std::uint64_t value);

// The same for a REG_SZ; reading one that has more than `most_bytes` with its closing null is a
// failure.
[[nodiscard]] Code ReadRegistryText(const std::wstring& key, const std::wstring& name,
                                    std::uint32_t most_bytes, std::wstring& value);
[[nodiscard]] Code WriteRegistryText(const std::wstring& key, const std::wstring& name,
                                     const std::wstring& value);

// kFileNotFound when there is no such value, or no such key.
Code DeleteRegistryValue(const std::wstring& key, const std::wstring& name);

}  // namespace kestrelon::platform

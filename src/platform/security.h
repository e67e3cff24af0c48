// Security descriptors, SIDs and the process's own standing.
//
// Descriptors and SIDs travel as the bytes of their self-relative binary form.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/codes.h"

namespace kestrelon::platform {

using SecurityDescriptor = std::vector<std::uint8_t>;
using Sid = std::vector<std::uint8_t>;

// Turns descriptor text (SDDL, revision 1) into a descriptor.
[[nodiscard]] Code DescriptorFromText(const std::wstring& text, SecurityDescriptor& descriptor);

// Turns "S-1-..." into a SID; two-letter abbreviations are accepted too.
[[nodiscard]] Code SidFromText(const std::wstring& text, Sid& sid);

// "S-1-..." of a SID in its binary form.
[[nodiscard]] Code SidText(std::span<const std::uint8_t> sid, std::wstring& text);

// The SID of an account name such as "NT SERVICE\EventLog", as text.
[[nodiscard]] Code SidOfAccount(const std::wstring& name, std::wstring& sid_text);

// The SID of an app package, derived from its name, as text.
[[nodiscard]] Code SidOfPackage(const std::wstring& name, std::wstring& sid_text);

// Applies the descriptor's DACL to a file or directory and its children, cut off from what the
// parent would inherit to it (DACL and protected DACL).
[[nodiscard]] Code ProtectFile(const std::wstring& path, const SecurityDescriptor& descriptor);

// Whether the process's token is elevated.
[[nodiscard]] Code IsProcessElevated(bool& elevated);

// Whether the process's user is LocalSystem.
[[nodiscard]] Code IsProcessLocalSystem(bool& local_system);

}  // namespace kestrelon::platform

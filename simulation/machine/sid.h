// Security identifiers: their binary and text forms, the names they are known by, and how those of
// services and app packages are derived from names.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace simulation {

// The bytes of a SID: revision 1, count of parts, authority in big-endian order, parts in
// little-endian order.
using SidBytes = std::vector<std::uint8_t>;

// The SID of an authority and 1 to 15 parts.
SidBytes SidOf(std::uint64_t authority, const std::vector<std::uint32_t>& parts);

// Reads "S-1-5-18" or an abbreviation of descriptor texts ("SY").
std::optional<SidBytes> ParseSid(std::wstring_view text);

// Whether the bytes are a SID of revision 1 with at most 15 parts; what follows it is no part of
// it.
bool IsSid(const SidBytes& bytes);

// "S-1-...", with the authority in decimal digits. The SID must be well formed.
std::wstring SidText(const SidBytes& sid);

// "NT SERVICE\<name>": S-1-5-80 and the SHA-1 of the upper-case name.
SidBytes ServiceSid(const std::wstring& name);

// An app package: S-1-15-2 and the first 28 bytes of the SHA-256 of the lower-case name.
SidBytes PackageSid(const std::wstring& name);

// The few accounts that each machine has, such as "NT AUTHORITY\SYSTEM"; without regard to case.
std::optional<SidBytes> BuiltinAccountSid(const std::wstring& name);

}  // namespace simulation

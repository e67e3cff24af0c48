// Whole digests, computed by OpenSSL.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace simulation {

// The digest of some bytes by "SHA256" or "SHA1"; empty for any other algorithm.
std::vector<std::uint8_t> DigestOf(const std::wstring& algorithm, std::string_view bytes);

}  // namespace simulation

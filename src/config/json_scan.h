// The scan that the reader and the writer of JSON texts share.
#pragma once

#include <cstdint>
#include <cstring>

namespace kestrelon {

// The first byte from `at` that can't stand in a JSON text as it is: a quote, a backslash or a
// control character below 0x20; `end` when there is none.
inline const char* FindSpecialByte(const char* at, const char* end) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  constexpr std::uint64_t kHighBits = kOnes * 0x80;
  // Eight bytes at a time; (x - 1) & ~x has the high bit of the lowest byte that is zero, and the
  // same with 0x20 instead of 1 that of the lowest byte below 0x20.
  for (; end - at >= 8; at += 8) {
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, at, sizeof(bytes));
    const std::uint64_t quote = bytes ^ (kOnes * '"');
    const std::uint64_t backslash = bytes ^ (kOnes * '\\');
    const std::uint64_t special = ((quote - kOnes) & ~quote) | ((backslash - kOnes) & ~backslash) |
                                  ((bytes - kOnes * 0x20) & ~bytes);
    if ((special & kHighBits) != 0) break;
  }
  for (; at != end; ++at) {
    if (*at == '"' || *at == '\\' || static_cast<unsigned char>(*at) < 0x20) break;
  }
  return at;
}

}  // namespace kestrelon

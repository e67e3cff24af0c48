// The scan that the reader and the writer of JSON texts share.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace kestrelon {

// Eight bytes with the high bit set of the first one, in memory order, that can't stand in a JSON
// text as it is; 0 when all can. Bits above the first one are not exact.
inline std::uint64_t MarkSpecialBytes(const char* at) {
  static_assert(std::endian::native == std::endian::little, "the first byte must be the lowest");
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, at, sizeof(bytes));
  // (x - 1) & ~x has the high bit of the lowest byte that is zero, and the same with 0x20 instead
  // of 1 that of the lowest byte below 0x20.
  const std::uint64_t quote = bytes ^ (kOnes * '"');
  const std::uint64_t backslash = bytes ^ (kOnes * '\\');
  return (((quote - kOnes) & ~quote) | ((backslash - kOnes) & ~backslash) |
          ((bytes - kOnes * 0x20) & ~bytes)) &
         (kOnes * 0x80);
}

// The first byte from `at` that is a quote, a backslash or a control character below 0x20; `end`
// when there is none.
inline const char* FindSpecialByte(const char* at, const char* end) {
  if (end - at < 8) {
    while (at != end && *at != '"' && *at != '\\' && static_cast<unsigned char>(*at) >= 0x20) ++at;
    return at;
  }
  for (; end - at >= 8; at += 8) {
    if (const std::uint64_t marks = MarkSpecialBytes(at)) return at + std::countr_zero(marks) / 8;
  }
  // The last eight bytes overlap with some that have been looked at and are plain.
  const std::uint64_t marks = MarkSpecialBytes(end - 8);
  return marks == 0 ? end : end - 8 + std::countr_zero(marks) / 8;
}

}  // namespace kestrelon

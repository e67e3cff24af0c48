// Numbers inside descriptor and SID texts.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace simulation {

// A number of at least one digit to the base of 8, 10 or 16; nothing above `largest`.
constexpr std::optional<std::uint64_t> ParseDigits(std::wstring_view digits, unsigned base,
                                                   std::uint64_t largest) {
  if (digits.empty()) return std::nullopt;
  std::uint64_t value = 0;
  for (const wchar_t letter : digits) {
    unsigned digit = base;
    if (letter >= L'0' && letter <= L'9') digit = static_cast<unsigned>(letter - L'0');
    if (letter >= L'A' && letter <= L'F') digit = static_cast<unsigned>(letter - L'A') + 10;
    if (letter >= L'a' && letter <= L'f') digit = static_cast<unsigned>(letter - L'a') + 10;
    if (digit >= base) return std::nullopt;
    value = value * base + digit;
    if (value > largest) return std::nullopt;
  }
  return value;
}

// Whether a text begins with "0x".
constexpr bool IsHexadecimal(std::wstring_view text) {
  return text.starts_with(L"0x") || text.starts_with(L"0X");
}

}  // namespace simulation

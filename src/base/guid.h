// The 128-bit identifiers by which the filtering platform names its objects.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace kestrelon {

struct Guid {
  std::uint32_t data1 = 0;
  std::uint16_t data2 = 0;
  std::uint16_t data3 = 0;
  std::array<std::uint8_t, 8> data4{};

  friend constexpr auto operator<=>(const Guid&, const Guid&) = default;
};

// The text of a Guid as StringFromGUID2 writes it: upper-case hexadecimal in braces, 38 characters.
std::string GuidText(const Guid& guid);

// Appends GuidText without a temporary, for texts that are built filter by filter.
void AppendGuidText(const Guid& guid, std::string& out);

// The Guid of a 36 or, with braces, 38 character text; a malformed literal does not compile.
consteval Guid MakeGuid(std::string_view text) {
  if (text.size() == 38) text = text.substr(1, 36);
  if (text.size() != 36) throw "a GUID has 36 characters";
  std::uint8_t bytes[16] = {};
  std::size_t digits = 0;
  for (const char c : text) {
    if (c == '-') continue;
    int value = 0;
    if (c >= '0' && c <= '9') {
      value = c - '0';
    } else if (c >= 'a' && c <= 'f') {
      value = c - 'a' + 10;
    } else if (c >= 'A' && c <= 'F') {
      value = c - 'A' + 10;
    } else {
      throw "a GUID holds hexadecimal digits";
    }
    bytes[digits / 2] = static_cast<std::uint8_t>(bytes[digits / 2] * 16 + value);
    ++digits;
  }
  if (digits != 32) throw "a GUID has 32 digits";
  Guid guid;
  guid.data1 = static_cast<std::uint32_t>(bytes[0]) << 24 |
               static_cast<std::uint32_t>(bytes[1]) << 16 |
               static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
  guid.data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
  guid.data3 = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
  for (std::size_t i = 0; i < 8; ++i) guid.data4[i] = bytes[8 + i];
  return guid;
}

}  // namespace kestrelon

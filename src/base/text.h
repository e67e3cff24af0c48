// Conversions and small operations on texts that need no platform.
//
// Inside the product a text is a std::wstring; in files and on pipes it is UTF-8. Wide units have
// 16 bits on Windows and 32 on the workshop's Linux: nothing here or above depends on the size.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kestrelon {

// UTF-8 to wide text. Each malformed sequence becomes one U+FFFD, as the platform converts it.
std::wstring WideFromUtf8(std::string_view text);

// Wide text to UTF-8. An unpaired surrogate becomes U+FFFD.
std::string Utf8FromWide(std::wstring_view text);

// Appends the UTF-8 form of a code point up to U+10FFFF that is no surrogate.
void AppendUtf8(char32_t point, std::string& out);

// The text without space, tab, carriage return and line feed at both ends.
std::wstring_view Trim(std::wstring_view text);

// The text cut at each of `separators`; empty pieces are kept.
std::vector<std::wstring_view> SplitAt(std::wstring_view text, std::wstring_view separators);

// Two lower-case hexadecimal digits for each byte.
std::wstring HexText(const std::uint8_t* bytes, std::size_t size);

// The UTF-16 code units of a text in memory order of the platform (little endian), closed by a
// null unit: the form in which the filtering platform holds application ids.
std::vector<std::uint8_t> Utf16BytesWithNull(std::wstring_view text);

// The text of such bytes without the nulls at its end; an odd last byte is no part of it.
std::wstring WideFromUtf16Bytes(std::span<const std::uint8_t> bytes);

}  // namespace kestrelon

#include "base/text.h"

#include <algorithm>

namespace kestrelon {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

constexpr bool IsHighSurrogate(char32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool IsLowSurrogate(char32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

constexpr bool IsSurrogate(char32_t unit) {
  return unit >= 0xD800 && unit <= 0xDFFF;
}

// Bytes that must follow a lead byte, and the bounds of the first of them, which are what excludes
// overlong forms, surrogates and values above U+10FFFF.
struct SequenceForm {
  int following = 0;  // 0 when the byte leads nothing
  unsigned char first_low = 0x80;
  unsigned char first_high = 0xBF;
};

constexpr SequenceForm FormOf(unsigned char lead) {
  if (lead >= 0xC2 && lead <= 0xDF) return {1};
  if (lead == 0xE0) return {2, 0xA0, 0xBF};
  if (lead == 0xED) return {2, 0x80, 0x9F};
  if (lead >= 0xE1 && lead <= 0xEF) return {2};
  if (lead == 0xF0) return {3, 0x90, 0xBF};
  if (lead >= 0xF1 && lead <= 0xF3) return {3};
  if (lead == 0xF4) return {3, 0x80, 0x8F};
  return {};
}

// Reads the code point at `at` and moves behind it; behind the longest well-formed start of a
// sequence when it is malformed, so that the byte that broke it is looked at by itself.
char32_t ReadUtf8(std::string_view text, std::size_t& at) {
  const auto lead = static_cast<unsigned char>(text[at++]);
  if (lead < 0x80) return lead;
  const SequenceForm form = FormOf(lead);
  if (form.following == 0) return kReplacement;
  char32_t point = lead & (0x3Fu >> form.following);
  unsigned char low = form.first_low;
  unsigned char high = form.first_high;
  for (int i = 0; i < form.following; ++i) {
    if (at == text.size()) return kReplacement;
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte < low || byte > high) return kReplacement;
    point = point << 6 | (byte & 0x3Fu);
    ++at;
    low = 0x80;
    high = 0xBF;
  }
  return point;
}

// One unit of a wide text as a number, whatever the type's size and sign.
char32_t UnitAt(std::wstring_view text, std::size_t at) {
  if constexpr (sizeof(wchar_t) == 2) {
    return static_cast<char16_t>(text[at]);
  } else {
    return static_cast<char32_t>(text[at]);
  }
}

// Reads the code point at `at` and moves behind it. A pair of surrogates is one code point for
// either size of unit.
char32_t ReadWide(std::wstring_view text, std::size_t& at) {
  const char32_t unit = UnitAt(text, at++);
  if (IsHighSurrogate(unit)) {
    if (at == text.size() || !IsLowSurrogate(UnitAt(text, at))) return kReplacement;
    return 0x10000 + ((unit - 0xD800) << 10) + (UnitAt(text, at++) - 0xDC00);
  }
  return IsLowSurrogate(unit) || unit > 0x10FFFF ? kReplacement : unit;
}

void AppendWide(char32_t point, std::wstring& out) {
  if (sizeof(wchar_t) == 2 && point >= 0x10000) {
    out += static_cast<wchar_t>(0xD800 + ((point - 0x10000) >> 10));
    out += static_cast<wchar_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
  } else {
    out += static_cast<wchar_t>(point);
  }
}

}  // namespace

void AppendUtf8(char32_t point, std::string& out) {
  if (point < 0x80) {
    out += static_cast<char>(point);
    return;
  }
  if (point < 0x800) {
    out += static_cast<char>(0xC0 | point >> 6);
  } else {
    if (point < 0x10000) {
      out += static_cast<char>(0xE0 | point >> 12);
    } else {
      out += static_cast<char>(0xF0 | point >> 18);
      out += static_cast<char>(0x80 | (point >> 12 & 0x3F));
    }
    out += static_cast<char>(0x80 | (point >> 6 & 0x3F));
  }
  out += static_cast<char>(0x80 | (point & 0x3F));
}

std::wstring WideFromUtf8(std::string_view text) {
  std::size_t plain = 0;
  while (plain < text.size() && static_cast<unsigned char>(text[plain]) < 0x80) ++plain;
  std::wstring out(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(plain));
  out.reserve(text.size());
  for (std::size_t at = plain; at < text.size();) AppendWide(ReadUtf8(text, at), out);
  return out;
}

std::string Utf8FromWide(std::wstring_view text) {
  std::size_t plain = 0;
  while (plain < text.size() && UnitAt(text, plain) < 0x80) ++plain;
  std::string out(plain, '\0');
  std::transform(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(plain), out.begin(),
                 [](wchar_t unit) { return static_cast<char>(unit); });
  for (std::size_t at = plain; at < text.size();) AppendUtf8(ReadWide(text, at), out);
  return out;
}

std::wstring_view Trim(std::wstring_view text) {
  constexpr std::wstring_view kBlanks = L" \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::wstring_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::vector<std::wstring_view> SplitAt(std::wstring_view text, std::wstring_view separators) {
  std::vector<std::wstring_view> pieces;
  std::size_t from = 0;
  for (;;) {
    const std::size_t end = text.find_first_of(separators, from);
    if (end == std::wstring_view::npos) break;
    pieces.push_back(text.substr(from, end - from));
    from = end + 1;
  }
  pieces.push_back(text.substr(from));
  return pieces;
}

std::wstring HexText(const std::uint8_t* bytes, std::size_t size) {
  std::wstring text;
  text.reserve(size * 2);
  for (std::size_t i = 0; i < size; ++i) {
    text += L"0123456789abcdef"[bytes[i] >> 4];
    text += L"0123456789abcdef"[bytes[i] & 0xF];
  }
  return text;
}

std::vector<std::uint8_t> Utf16BytesWithNull(std::wstring_view text) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(text.size() * 2 + 2);
  const auto append = [&bytes](char32_t unit) {
    bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
    bytes.push_back(static_cast<std::uint8_t>(unit >> 8 & 0xFF));
  };
  for (std::size_t at = 0; at < text.size(); ++at) {
    // Units pass as they are, unpaired surrogates included: file names may hold them.
    const char32_t unit = UnitAt(text, at);
    if (unit >= 0x10000) {
      append(0xD800 + ((unit - 0x10000) >> 10));
      append(0xDC00 + ((unit - 0x10000) & 0x3FF));
    } else {
      append(unit);
    }
  }
  append(0);
  return bytes;
}

std::wstring WideFromUtf16Bytes(std::span<const std::uint8_t> bytes) {
  const auto unit_at = [bytes](std::size_t at) -> char32_t {
    return static_cast<char32_t>(bytes[at * 2] | bytes[at * 2 + 1] << 8);
  };
  std::size_t count = bytes.size() / 2;
  while (count > 0 && unit_at(count - 1) == 0) --count;
  std::size_t plain = 0;
  std::wstring text(count, L'\0');
  while (plain < count && !IsSurrogate(unit_at(plain))) {
    text[plain] = static_cast<wchar_t>(unit_at(plain));
    ++plain;
  }
  text.resize(plain);
  for (std::size_t at = plain; at < count; ++at) {
    char32_t point = unit_at(at);
    const bool pair = IsHighSurrogate(point) && at + 1 < count && IsLowSurrogate(unit_at(at + 1));
    if (pair) point = 0x10000 + ((point - 0xD800) << 10) + (unit_at(++at) - 0xDC00);
    AppendWide(point, text);
  }
  return text;
}

}  // namespace kestrelon

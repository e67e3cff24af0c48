// Printf-style text for the product's messages, with the arguments checked at compile time.
//
// A message stands in the code once and whole, `Format(L"Rule '%s' skipped", name)`, so that a
// search for what a user reads finds it. The letters are those of the messages: %s %d %lld %u %lu
// %llu %zu %x %lx %X %.1f and %%, with an optional '0' flag and width before the integer letters.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

namespace kestrelon {

// One directive of a format text, as found behind its '%'.
struct FormatDirective {
  wchar_t letter = 0;   // s d u x X f or %; 0 when the directive is malformed
  int width = 0;        // minimal digits, 0 for none
  bool zeros = false;   // pad to the width with zeros instead of blanks
  int precision = -1;   // digits behind the point of %f, -1 when not given
  std::size_t end = 0;  // index just behind the directive
};

// Reads the directive whose '%' stands at `at`.
constexpr FormatDirective ReadDirective(std::wstring_view text, std::size_t at) {
  FormatDirective directive;
  std::size_t i = at + 1;
  const auto digit = [&] { return i < text.size() && text[i] >= L'0' && text[i] <= L'9'; };
  if (i < text.size() && text[i] == L'0') {
    directive.zeros = true;
    ++i;
  }
  for (; digit(); ++i) directive.width = directive.width * 10 + (text[i] - L'0');
  if (i < text.size() && text[i] == L'.') {
    ++i;
    directive.precision = 0;
    for (; digit(); ++i) directive.precision = directive.precision * 10 + (text[i] - L'0');
  }
  // An argument knows its own size.
  for (const std::wstring_view size : {L"z", L"ll", L"l"}) {
    if (!text.substr(i).starts_with(size)) continue;
    i += size.size();
    break;
  }
  if (i < text.size()) {
    const std::wstring_view letters = L"sduxXf%";
    if (letters.find(text[i]) != std::wstring_view::npos) directive.letter = text[i];
    directive.end = i + 1;
  }
  return directive;
}

// One argument of Format, reduced to the few shapes that the letters can print.
struct FormatArgument {
  enum class Kind : std::uint8_t { kText, kSigned, kUnsigned, kFloat };
  Kind kind = Kind::kText;
  std::wstring_view text;
  std::int64_t signed_value = 0;
  std::uint64_t unsigned_value = 0;
  double float_value = 0;

  FormatArgument(std::wstring_view value) : kind(Kind::kText), text(value) {}
  FormatArgument(const std::wstring& value) : kind(Kind::kText), text(value) {}
  FormatArgument(const wchar_t* value) : kind(Kind::kText), text(value) {}
  template <typename T>
  requires std::is_integral_v<T> FormatArgument(T value) {
    if constexpr (std::is_signed_v<T>) {
      kind = Kind::kSigned;
      signed_value = value;
    } else {
      kind = Kind::kUnsigned;
      unsigned_value = value;
    }
  }
  FormatArgument(double value) : kind(Kind::kFloat), float_value(value) {}
};

// Whether a value of type T may stand where `directive` does. The width of an integer need not
// equal the letter's (a 32-bit value prints under %lu on every platform), its sign must.
template <typename T>
constexpr bool DirectiveTakes(const FormatDirective& directive) {
  switch (directive.letter) {
    case L's':
      return std::is_convertible_v<T, std::wstring_view>;
    case L'd':
      return std::is_integral_v<T> && std::is_signed_v<T>;
    case L'u':
    case L'x':
    case L'X':
      return std::is_integral_v<T> && std::is_unsigned_v<T>;
    case L'f':
      return std::is_floating_point_v<T>;
    default:
      return false;
  }
}

// A format text that has been compared with the types of its arguments: a mismatch in letter or
// number does not compile.
template <typename... Args>
class FormatText {
 public:
  // NOLINTNEXTLINE(google-explicit-constructor): a literal turns into a checked text in place.
  consteval FormatText(const wchar_t* text) : text_(text) {
    using Check = bool (*)(const FormatDirective&);
    const Check checks[] = {&DirectiveTakes<Args>..., nullptr};
    std::size_t used = 0;
    for (std::size_t i = 0; i < text_.size();) {
      if (text_[i] != L'%') {
        ++i;
        continue;
      }
      const FormatDirective directive = ReadDirective(text_, i);
      if (directive.letter == 0) throw "malformed format directive";
      i = directive.end;
      if (directive.letter == L'%') continue;
      if (used == sizeof...(Args)) throw "more format directives than arguments";
      if (!checks[used](directive)) throw "format directive does not fit its argument";
      ++used;
    }
    if (used != sizeof...(Args)) throw "fewer format directives than arguments";
  }

  constexpr std::wstring_view text() const { return text_; }

 private:
  std::wstring_view text_;
};

// Replaces the directives of a checked text by the arguments, in order. Not for hot paths.
std::wstring FormatArguments(std::wstring_view text, const FormatArgument* arguments);

// The text with its directives replaced: Format(L"%zu filters", count).
template <typename... Args>
std::wstring Format(FormatText<std::type_identity_t<Args>...> format, const Args&... args) {
  const FormatArgument arguments[] = {FormatArgument(args)..., FormatArgument(L"")};
  return FormatArguments(format.text(), arguments);
}

}  // namespace kestrelon

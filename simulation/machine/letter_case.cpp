#include "simulation/machine/letter_case.h"

#include <clocale>
#include <cwctype>

namespace simulation {
namespace {

constexpr wint_t kLastAscii = 0x7F;
constexpr wint_t kLastOneUnitLetter = 0xFFFF;

locale_t UnicodeLocale() {
  static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return locale;
}

// The platform maps 16-bit units, so letters of two units keep their case; and it never takes a
// letter outside ASCII as one of ASCII (the Kelvin sign, the dotless i), as Unicode would.
wchar_t Mapped(wchar_t letter, wint_t mapped) {
  const auto original = static_cast<wint_t>(letter);
  if (original > kLastOneUnitLetter || mapped > kLastOneUnitLetter) return letter;
  if ((original <= kLastAscii) != (mapped <= kLastAscii)) return letter;
  return static_cast<wchar_t>(mapped);
}

}  // namespace

wchar_t UpperLetter(wchar_t letter) {
  return Mapped(letter, towupper_l(static_cast<wint_t>(letter), UnicodeLocale()));
}

wchar_t LowerLetter(wchar_t letter) {
  return Mapped(letter, towlower_l(static_cast<wint_t>(letter), UnicodeLocale()));
}

std::wstring FoldCase(std::wstring_view text) {
  std::wstring folded(text);
  for (wchar_t& letter : folded) letter = UpperLetter(letter);
  return folded;
}

}  // namespace simulation

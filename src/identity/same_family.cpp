#include "identity/same_family.h"

#include <string_view>
#include <vector>

#include "base/text.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr std::wstring_view kSlashes = L"\\/";
constexpr std::wstring_view kDigits = L"0123456789";
constexpr std::wstring_view kVersionLetters = L"0123456789_.-";
constexpr std::size_t kFewestComponents = 3;  // a drive, a directory and a file

bool HasDigit(std::wstring_view text) {
  return text.find_first_of(kDigits) != std::wstring_view::npos;
}

std::wstring WithoutVersion(std::wstring_view text) {
  std::wstring rest(text);
  std::erase_if(rest, [](wchar_t c) { return kVersionLetters.find(c) != std::wstring_view::npos; });
  return rest;
}

// Whether two directory names differ in nothing but their version, which both have.
bool IsSameNameVersioned(std::wstring_view a, std::wstring_view b) {
  return HasDigit(a) && HasDigit(b) &&
         platform::EqualIgnoringCase(WithoutVersion(a), WithoutVersion(b));
}

}  // namespace

bool SameFamilyPath(const std::wstring& a, const std::wstring& b) {
  const std::vector<std::wstring_view> left = SplitAt(a, kSlashes);
  const std::vector<std::wstring_view> right = SplitAt(b, kSlashes);
  if (left.size() != right.size() || left.size() < kFewestComponents) return false;

  const std::size_t none = left.size();
  std::size_t differing = none;
  for (std::size_t i = 0; i < left.size(); ++i) {
    if (platform::EqualIgnoringCase(left[i], right[i])) continue;
    if (differing != none) return false;
    differing = i;
  }
  const bool in_a_directory = differing + 1 < left.size();
  return in_a_directory && IsSameNameVersioned(left[differing], right[differing]);
}

}  // namespace kestrelon

#include "simulation/machine/name_pattern.h"

#include <string>

#include "simulation/machine/letter_case.h"

namespace simulation {
namespace {

// The platform first rewrites a pattern with three further signs.
constexpr wchar_t kAnyUpToLastDot = L'<';
constexpr wchar_t kOneOrNoneAtDot = L'>';
constexpr wchar_t kDotOrEnd = L'"';

std::wstring Rewritten(std::wstring_view pattern) {
  if (pattern == L"*.*") return L"*";
  std::wstring result = FoldCase(pattern);
  for (std::size_t i = 0; i < result.size(); ++i) {
    const bool wildcard = result[i] == L'?' || result[i] == L'*';
    if (i > 0 && wildcard && result[i - 1] == L'.') result[i - 1] = kDotOrEnd;
    if (result[i] == L'?') result[i] = kOneOrNoneAtDot;
  }
  if (result.ends_with(L"*.")) result.replace(result.size() - 2, 2, 1, kAnyUpToLastDot);
  return result;
}

bool Matches(std::wstring_view pattern, std::wstring_view name);

bool MatchesRun(std::wstring_view rest, std::wstring_view name, std::size_t longest) {
  for (std::size_t length = 0; length <= longest; ++length) {
    if (Matches(rest, name.substr(length))) return true;
  }
  return false;
}

bool Matches(std::wstring_view pattern, std::wstring_view name) {
  if (pattern.empty()) return name.empty();
  const std::wstring_view rest = pattern.substr(1);
  const bool at_dot_or_end = name.empty() || name[0] == L'.';
  switch (pattern[0]) {
    case L'*':
      return MatchesRun(rest, name, name.size());
    case kAnyUpToLastDot:
      // Names end without a dot, so a final "*." asks for names that have none.
      return name.find(L'.') == std::wstring_view::npos && MatchesRun(rest, name, name.size());
    case kOneOrNoneAtDot:
      return Matches(rest, at_dot_or_end ? name : name.substr(1));
    case kDotOrEnd:
      return at_dot_or_end && Matches(rest, name.empty() ? name : name.substr(1));
    default:
      return !name.empty() && pattern[0] == name[0] && Matches(rest, name.substr(1));
  }
}

}  // namespace

bool NameMatches(std::wstring_view pattern, std::wstring_view name) {
  return Matches(Rewritten(pattern), FoldCase(name));
}

}  // namespace simulation

// Application paths with wildcards.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrelon {

// Whether a path holds "*" or "?" and so is a pattern.
[[nodiscard]] bool HasWildcard(std::wstring_view path);

// The existing files that a path with "*" or "?" matches, at most 64; a path without wildcards is
// the result by itself, existing or not.
[[nodiscard]] std::vector<std::wstring> ExpandAppPattern(const std::wstring& path);

// Whether a name matches a pattern, without regard to case; wildcards don't cross a slash.
[[nodiscard]] bool MatchPattern(const std::wstring& pattern, const std::wstring& name);

}  // namespace kestrelon

// Win32 paths, taken apart.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace simulation {

struct ParsedPath {
  std::wstring root;  // "C:" or "\\server\share"
  std::vector<std::wstring> names;
};

// Reads a full path: slashes of both kinds, ".", "..", blanks and dots at the end of names and the
// prefix "\\?\" are treated as the platform treats them. Nothing for a relative path.
std::optional<ParsedPath> ParsePath(const std::wstring& path);

// Whether a volume can hold a file of this name.
bool IsValidName(const std::wstring& name);

}  // namespace simulation

// Whether one path is where another version of the same program would stand.
#pragma once

#include <string>

namespace kestrelon {

// The paths differ in exactly one directory, and there in nothing but a version number, without
// regard to case: "C:\App-1.2\app.exe" and "C:\App-1.3\app.exe". Equal paths are no family.
[[nodiscard]] bool SameFamilyPath(const std::wstring& a, const std::wstring& b);

}  // namespace kestrelon

// Paths in their comparable form. All functions may be called from any thread and give the
// unchanged input, or an empty text, rather than failing.
#pragma once

#include <string>
#include <string_view>

namespace kestrelon {

// Full path of the running program, and its directory without a closing backslash.
[[nodiscard]] std::wstring ExecutablePath();
[[nodiscard]] std::wstring ExecutableDirectory();

// The text behind the last "\" or "/".
[[nodiscard]] std::wstring FileNamePart(std::wstring_view path);

// The text before the last "\"; empty when there is none.
[[nodiscard]] std::wstring ParentDirectory(std::wstring_view path);

// Replaces environment variables. A text without "%", or whose expansion fails, stays as it is.
[[nodiscard]] std::wstring ExpandPath(const std::wstring& text);

// The final form of an existing path: links followed, letter case as on the disk, without the
// "\\?\" that the platform puts in front. Opens the file.
[[nodiscard]] std::wstring NormalizePath(const std::wstring& path);

// Whether something other than a directory is there; not if that can't be learnt.
[[nodiscard]] bool IsExistingFile(const std::wstring& path);

}  // namespace kestrelon

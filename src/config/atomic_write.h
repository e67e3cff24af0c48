// The one safe way to replace a text file.
#pragma once

#include <string>
#include <string_view>

namespace kestrelon {

// Writes `text` to a temporary file beside `path`, flushes it to the disk and renames it over the
// target: a reader sees the old complete file or the new one, also after a power cut. On failure
// the target is as it was. One writer for each target at a time: the temporary name is fixed.
[[nodiscard]] bool AtomicWriteText(const std::wstring& path, std::string_view text,
                                   std::wstring& error);

}  // namespace kestrelon

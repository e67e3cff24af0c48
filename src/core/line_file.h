// Files that are written line by line: opened and closed for each line, so that they can be read,
// moved or deleted in between and nothing is lost in a crash.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/guard.h"
#include "platform/clock.h"

namespace kestrelon {

// Serves all such files and what is kept in memory beside them. A leaf: nothing is taken under it.
extern Guard LogGuard;

// "2026-11-21 12:00:00"; empty for a time that can't be converted.
[[nodiscard]] std::wstring TimeStamp(const std::optional<platform::CalendarTime>& time);

// The text with a blank for each control character: what others have put into it, such as a
// signer's name, neither begins a line of its own nor commands a console.
[[nodiscard]] std::wstring OneLine(std::wstring text);

// Appends UTF-8 text to a file. One that is larger than `rotate_above` bytes is first renamed to
// "PATH.old", replacing an older one. What can't be written is dropped.
void AppendToLineFile(const std::wstring& path, std::uint64_t rotate_above, std::string_view text)
    REQUIRES(LogGuard);

}  // namespace kestrelon

// Texts as the platform knows them: letter case and the messages of its codes. None of these
// fails in a way worth telling; any thread.
#pragma once

#include <string>
#include <string_view>

#include "platform/codes.h"

namespace kestrelon::platform {

// Ordinal comparison without regard to case (CompareStringOrdinal).
[[nodiscard]] bool EqualIgnoringCase(std::wstring_view a, std::wstring_view b);

// Ordinal test of a prefix without regard to case.
[[nodiscard]] bool StartsWithIgnoringCase(std::wstring_view text, std::wstring_view prefix);

// The text in lower case, letter by letter (CharLowerBuffW).
[[nodiscard]] std::wstring LowerCase(std::wstring_view text);

// The system's message for a code, inserts left as they are; empty when there is none.
[[nodiscard]] std::wstring SystemMessage(Code code);

// The message that a loaded module holds for a code; empty when there is none.
[[nodiscard]] std::wstring ModuleMessage(const std::wstring& module, Code code);

}  // namespace kestrelon::platform

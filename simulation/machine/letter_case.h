// Letter case as the platform knows it: one table of single letters, the same for file names,
// registry keys and ordinal comparisons, whatever the process's locale.
#pragma once

#include <string>
#include <string_view>

namespace simulation {

wchar_t UpperLetter(wchar_t letter);
wchar_t LowerLetter(wchar_t letter);

// The text in upper case, letter by letter: equal for texts that the platform takes as equal.
std::wstring FoldCase(std::wstring_view text);

}  // namespace simulation

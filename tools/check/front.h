// The face of the check to a person: what it is about to do, what it did.
#pragma once

#include <string>
#include <vector>

namespace kestrelon::check {

// The variable of the environment by which the processes of a check know that they are: the path
// of the record for those that run its cases, kNoRecord for what these start in turn.
inline constexpr const wchar_t* kRecordVariable = L"KESTRELON_CHECK_RECORD";
inline constexpr const wchar_t* kNoRecord = L"-";

// Makes a whole check; gives the exit code: 0 when nothing failed, 1 when something did, 2 when
// none was made, 5 when that was for want of elevation.
[[nodiscard]] int RunFront(const std::vector<std::wstring>& arguments);

}  // namespace kestrelon::check

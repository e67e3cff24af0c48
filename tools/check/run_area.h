// The process that runs cases: those of one area, the first that the record knows nothing of.
#pragma once

#include <string>

namespace kestrelon::check {

// The exit code of a run that found nothing left to do.
inline constexpr int kNothingLeft = 9;

// Runs one area and writes what comes of it into the record. GoogleTest has been initialised; its
// filter says which cases are wanted at all. Gives the exit code.
[[nodiscard]] int RunNextArea(const std::wstring& record);

}  // namespace kestrelon::check

// The watch over the processes that run the cases.
#pragma once

#include <string>
#include <vector>

#include "tools/check/report.h"

namespace kestrelon::check {

// Starts this program for one area after the other until all cases that `filter` wants (empty: all)
// are in the record, and prints each as it ends. A process that breaks off, or stands still for
// five minutes, costs the case that it was in; Ctrl+C ends the whole. Gives what was wrong beyond
// the cases.
[[nodiscard]] std::vector<Finding> RunCases(const std::wstring& record, const std::wstring& filter);

}  // namespace kestrelon::check

// The command line of KestrelonSvc.
#pragma once

#include <string>
#include <vector>

namespace kestrelon {

// Runs the process by its arguments and gives its exit code: 0 success, 1 failure, 5 not elevated.
// The first argument alone selects, compared exactly; further ones are ignored.
[[nodiscard]] int RunCommandLine(const std::vector<std::wstring>& arguments);

}  // namespace kestrelon

// The command line of KestrelonSvc.
#pragma once

#include <string>
#include <vector>

namespace kestrelon {

// Runs the process by its arguments and gives its exit code: 0 success, 1 failure, 2 installed but
// not running, 5 not elevated; of an update the installer's. Without an argument the process is the
// service. The first argument alone selects, compared exactly; further ones than a command needs
// are ignored. Returns when the work is done.
[[nodiscard]] int RunCommandLine(const std::vector<std::wstring>& arguments);

}  // namespace kestrelon

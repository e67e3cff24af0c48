// What wfpctl can do.
#pragma once

#include <string>

#include "simulation/bench/wfpctl_arguments.h"

namespace simulation {

// The exit codes; a permitted connection and any other success are 0.
inline constexpr int kExitDone = 0;
inline constexpr int kExitBlocked = 1;
inline constexpr int kExitError = 2;

// One command: takes its arguments, prints its result, gives the exit code. Mistakes in the
// arguments are left with them, and nothing is done then.
using Command = int (*)(Arguments& arguments);

int Connect(Arguments& arguments);
int Batch(Arguments& arguments);
int List(Arguments& arguments);
int Count(Arguments& arguments);
int Options(Arguments& arguments);
int AddFilter(Arguments& arguments);
int SetWeight(Arguments& arguments);
int DeleteFilter(Arguments& arguments);
int DeleteSublayer(Arguments& arguments);
int DeleteBootFilters(Arguments& arguments);
int DeleteAllOfProvider(Arguments& arguments);

// Print a line, in UTF-8, on the output and on the error output.
void PrintLine(const std::wstring& text);
void PrintError(const std::wstring& text);

// Prints what was refused and why; gives the exit code. `what` is a call's name or an action.
int ReportFailure(std::wstring_view what, Code code);

}  // namespace simulation

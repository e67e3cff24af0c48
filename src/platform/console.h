// The process's surroundings: arguments, standard streams, debugger, Ctrl+C.
#pragma once

#include <string>
#include <vector>

#include "platform/codes.h"

namespace kestrelon::platform {

// The command line's arguments, the program's own name left out.
std::vector<std::wstring> CommandLineArguments();

// Writes a text as UTF-8, at once. Failures are ignored: nobody is there to read of them.
void WriteStandardOutput(const std::wstring& text);
void WriteStandardError(const std::wstring& text);

// Hands a line to an attached debugger.
void WriteDebugOutput(const std::wstring& text);

// Has `handler` called, on a thread of the platform's, when the user or the system asks the
// console program to end; the request then counts as handled.
Code SetConsoleStopHandler(void (*handler)());

}  // namespace kestrelon::platform

// How programs are started, as whomever.
#pragma once

#include "platform/processes.h"
#include "platform/windows/windows_headers.h"

namespace kestrelon::platform {

// Starts a program as the user of a primary token, or as this process's own when there is none,
// with an environment block or this process's own.
[[nodiscard]] Code StartProgramAs(HANDLE token, void* environment, const ProgramStart& start,
                                  StartedProgram& started);

}  // namespace kestrelon::platform

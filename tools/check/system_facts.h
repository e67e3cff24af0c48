// What there is to tell of the machine and of what lies beside this program.
#pragma once

#include <string>

#include "platform/codes.h"

namespace kestrelon::check {

// Whether the system is Wine, and which; empty on Windows.
[[nodiscard]] std::string WineVersion();

// The system's name, version and build, for people.
[[nodiscard]] std::wstring SystemName();

// Whether this program runs as LocalSystem, and so may do what the service may.
[[nodiscard]] bool RunsAsLocalSystem();

// The directory of this program, without a closing backslash, and the product's executable in it.
[[nodiscard]] std::wstring OwnDirectory();
[[nodiscard]] std::wstring ServiceExecutable();

// Version and build of the product's executable, such as "1.2.2.48", and the SHA-256 of its file;
// "unknown" when they can't be read.
[[nodiscard]] std::wstring ServiceVersion();
[[nodiscard]] std::wstring ServiceSha256();

// Whether the console window was opened for this program, and closes with it.
[[nodiscard]] bool HasConsoleToItself();

// What opening a session with the filtering engine answers.
[[nodiscard]] platform::Code EngineAnswer();

}  // namespace kestrelon::check

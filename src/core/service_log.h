// service.log: what the service tells the people who run it.
#pragma once

#include <string>

#include "base/format.h"

namespace kestrelon {

// Also prints each line on standard output. Set by the foreground entry before the first line.
void PrintLogLines(bool print);

// Writes one finished message as a line. Use LogService.
void WriteLogLine(std::wstring message);

// One line into service.log, from any thread and under any guard. The file is opened and closed
// for each line: it can be read, moved or deleted in between, and nothing is lost in a crash. A
// message of 4096 characters or more is cut; a line that can't be written is dropped.
template <typename... Args>
void LogService(FormatText<std::type_identity_t<Args>...> format, const Args&... args) {
  WriteLogLine(Format<Args...>(format, args...));
}

}  // namespace kestrelon

// The immediate block of a changed file, between applications.
#pragma once

#include <string>

namespace kestrelon {

// Blocks each pinned file of `directory` (lower case) whose change number moved, before any
// verification; the next application confirms the file or holds it back. For watch threads;
// waits for a running transaction. Failure is logged, the file then stays as it was.
void BlockChangedFiles(const std::wstring& directory);

// The same for all pinned files, at the end of an application. One that was replaced after it had
// been looked at has got its permission: no watch may have stood yet, and a block that came in
// between went with the old filters.
void BlockFilesChangedMeanwhile();

}  // namespace kestrelon

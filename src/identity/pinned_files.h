// The files that are permitted by their hash alone, with the change numbers they had when they
// were last verified. A changed number means that the file must be blocked until verified again.
#pragma once

#include <string>
#include <vector>

#include "filtering/filter_plan.h"

namespace kestrelon {

// Takes the hash-pinned files of a plan in place of those held before.
void SnapshotPinned(const std::vector<PlanEntry>& entries);

// The pinned files of a directory (lower case) whose number differs from the stored one.
[[nodiscard]] std::vector<std::wstring> ChangedPinnedFiles(const std::wstring& directory);

// Stores the present numbers of these files, so that one change is told once.
void AcceptPinnedNumbers(const std::vector<std::wstring>& paths);

}  // namespace kestrelon

// The files that are permitted by their hash alone, with the change numbers they had before they
// were last verified. A changed number means that the file must be blocked until verified again.
// All functions may be called from any thread; the comparison opens files.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "filtering/filter_plan.h"

namespace kestrelon {

// A pinned file whose change number moved.
struct PinnedChange {
  std::wstring path;        // as in the plan
  std::int64_t stored = 0;  // the number that is held
  std::int64_t seen = 0;    // the number that the file has
};

// Takes the hash-pinned files of a plan, with its numbers, in place of those held before. Numbers
// that were taken only now would hide a change since the verification.
void SnapshotPinned(const std::vector<PlanEntry>& entries);

// The pinned files of a directory (lower case), or of all, whose number differs from the stored
// one. A file without a number before and after never counts as changed.
[[nodiscard]] std::vector<PinnedChange> ChangedPinnedFiles(
    std::optional<std::wstring_view> directory);

// Stores the numbers seen, so that one change is told once. A file that a new snapshot has taken
// in the meantime keeps the snapshot's number.
void AcceptPinnedNumbers(const std::vector<PinnedChange>& changes);

}  // namespace kestrelon

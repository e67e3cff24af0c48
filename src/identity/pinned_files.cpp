#include "identity/pinned_files.h"

#include <utility>

#include "base/guard.h"
#include "config/app_reference.h"
#include "identity/file_usn.h"
#include "identity/paths.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

struct PinnedFile {
  std::wstring path;       // as in the plan
  std::wstring directory;  // lower-case parent of the expanded path
  std::int64_t usn = -1;   // negative if the file system gives none
};

// A leaf. Held while numbers are compared, so that a snapshot and a comparison don't mix.
Guard PinnedGuard("PinnedGuard", GuardRank::kLeaf);
std::vector<PinnedFile> PinnedFiles GUARDED_BY(PinnedGuard);

}  // namespace

void SnapshotPinned(const std::vector<PlanEntry>& entries) {
  std::vector<PinnedFile> pinned;
  for (const PlanEntry& entry : entries) {
    if (!entry.allow || !entry.hash_pinned || !entry.service_sid.empty()) continue;
    if (IsSystemApp(entry.path)) continue;
    std::wstring directory = ParentDirectory(platform::LowerCase(ExpandPath(entry.path)));
    if (directory.empty()) continue;
    pinned.push_back({entry.path, std::move(directory), entry.usn});
  }
  GuardLock lock(PinnedGuard);
  PinnedFiles.swap(pinned);
}

std::vector<PinnedChange> ChangedPinnedFiles(std::optional<std::wstring_view> directory) {
  std::vector<PinnedChange> changes;
  GuardLock lock(PinnedGuard);
  for (const PinnedFile& file : PinnedFiles) {
    if (directory && file.directory != *directory) continue;
    const std::int64_t usn = FileUsn(file.path);
    if (usn == file.usn || (usn < 0 && file.usn < 0)) continue;
    changes.push_back({file.path, file.usn, usn});
  }
  return changes;
}

void AcceptPinnedNumbers(const std::vector<PinnedChange>& changes) {
  GuardLock lock(PinnedGuard);
  for (const PinnedChange& change : changes) {
    for (PinnedFile& file : PinnedFiles) {
      if (file.path == change.path && file.usn == change.stored) file.usn = change.seen;
    }
  }
}

}  // namespace kestrelon

#include "filtering/changed_files.h"

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "core/core_state.h"
#include "core/service_log.h"
#include "filtering/add_filters.h"
#include "filtering/app_id.h"
#include "filtering/filter_engine.h"
#include "filtering/filter_keys.h"
#include "filtering/filter_transaction.h"
#include "filtering/read_filters.h"
#include "identity/pinned_files.h"

namespace kestrelon {
namespace {

// Adds the filters that block a file whatever rule speaks for it. A file that has no identifier
// can't be told apart and is passed over.
bool AddFileBlock(AddContext& context, const std::wstring& path) {
  platform::Bytes app_id;
  if (!AppIdFor(path, app_id)) return true;
  FilterGroup group;
  group.name = L"Integrity block (file changed)";
  group.weight = kWeightIntegrityBlock;
  group.kind = FilterKind::kApplication;
  group.tag = path;
  const FilterSink sink = AddingSink(context);
  return FilterWriter(sink).Write(group, {AppIs(std::move(app_id))});
}

// Enters the new filters in the record, lest the audit take them for tampering. When they can't be
// read back they stand unrecorded.
void RecordBlocks(FilterEngine& engine, const std::vector<Guid>& added_keys)
    REQUIRES(engine.EngineGuard) {
  FilterRecordTable added;
  std::wstring ignored;
  if (ReadRecord(engine, added_keys, added, ignored)) engine.FilterRecord.merge(added);
}

// One transaction for all files, and what the rest of the product is to know of it.
bool BlockFiles(FilterEngine& engine, const std::vector<PinnedChange>& changes,
                std::wstring& error) {
  GuardLock lock(engine.EngineGuard);
  if (!RequireSession(engine, error)) return false;
  std::vector<Guid> added_keys;
  FilterTagTable tags;
  {
    FilterTransaction transaction(engine.handle);
    if (!transaction.Begin(error)) return false;
    AddContext context{engine.handle, added_keys, tags, error};
    for (const PinnedChange& change : changes) {
      if (!AddFileBlock(context, change.path)) return false;
    }
    if (!transaction.Commit(error)) return false;
  }
  RecordBlocks(engine, added_keys);
  Core.ChangedFilePending = true;
  GuardLock record_lock(engine.RecordGuard);
  engine.FilterTags.merge(tags);
  return true;
}

void BlockChanges(const std::vector<PinnedChange>& changes) {
  if (changes.empty()) return;
  std::wstring error;
  if (!BlockFiles(TheEngine, changes, error)) {
    LogService(L"Blocking a changed file failed: %s", error);
    return;
  }
  AcceptPinnedNumbers(changes);
  Core.ChangedFilesBlocked += static_cast<std::uint32_t>(changes.size());
  for (const PinnedChange& change : changes) {
    LogService(L"File changed: %s - blocked until it is verified again", change.path);
  }
}

}  // namespace

void BlockChangedFiles(const std::wstring& directory) {
  if (!Core.Stopping) BlockChanges(ChangedPinnedFiles(directory));
}

void BlockFilesChangedMeanwhile() {
  BlockChanges(ChangedPinnedFiles(std::nullopt));
}

}  // namespace kestrelon

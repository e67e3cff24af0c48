// The blocklists in memory and their files: the cache of a download under the data directory, and
// the copy that the installer lays beside the executable.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "base/guard.h"
#include "blocklists/blocklist_catalog.h"
#include "config/json.h"

namespace kestrelon {

struct BlocklistState {
  std::vector<std::wstring> entries;  // networks as the source writes them, in its order
  std::int64_t updated = 0;           // of the fetch or of the newest installed file; 0 for never
  std::wstring source;                // "download", "bundled" or empty
  std::wstring error;                 // of the last refresh if that failed
};

// Held for moments, inside ConfigGuard and without it, but also while a cache is written; of other
// guards only LogService's may be taken under it.
extern Guard BlocklistGuard;

// By the id of a catalog row; a list that was never loaded is absent.
extern std::map<std::wstring, BlocklistState> BlocklistStates GUARDED_BY(BlocklistGuard);

// Reads the cache of a list into `state`; whether it has entries. A file of 16 MiB or more is not
// read.
[[nodiscard]] bool LoadCachedBlocklist(const BlocklistRow& row, BlocklistState& state);

// Where a list's cache is, and its text for a state.
[[nodiscard]] std::wstring BlocklistCachePath(const BlocklistRow& row);
[[nodiscard]] std::string BlocklistCacheText(const BlocklistRow& row, const BlocklistState& state);

// Loads every list of the catalog, from the cache or, without one, from the installed copy.
void LoadBlocklists() EXCLUDES(BlocklistGuard);

// For the status report: one object for each list of the catalog.
[[nodiscard]] Json BlocklistStatus() EXCLUDES(BlocklistGuard);

}  // namespace kestrelon

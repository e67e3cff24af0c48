#include "blocklists/refresh_blocklists.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/format.h"
#include "base/start_thread.h"
#include "blocklists/blocklist_store.h"
#include "blocklists/extract_networks.h"
#include "blocklists/fetch_blocklist.h"
#include "config/atomic_write.h"
#include "core/data_dir.h"
#include "core/service_log.h"
#include "platform/clock.h"
#include "platform/files.h"

namespace kestrelon {
namespace {

constexpr std::uint64_t kStartSpacingMs = 3600000;
constexpr std::int64_t kFreshFor = 864000000000;  // 24 hours in 100 ns steps
// A page that is no list, such as that of a captive portal, may hold an address or two.
constexpr std::size_t kFewestEntries = 10;

// A refresh is running. Atomic because the status report reads it and the thread itself clears it.
std::atomic<bool> BlocklistBusy = false;

std::uint64_t BlocklistLastStart GUARDED_BY(ConfigGuard) = 0;  // tick in ms; 0 for never
std::thread BlocklistThread GUARDED_BY(ConfigGuard);           // that of the last refresh

bool FetchTexts(const BlocklistRow& row, std::string& texts, std::wstring& error) {
  std::string fetched;
  for (const std::wstring& url : row.urls) {
    if (BlocklistFetchesCancelled()) break;  // what has come by now is judged like a whole list
    std::string body;
    std::wstring cause;
    if (!FetchBlocklistUrl(url, body, cause)) {
      error = url + L": " + cause;
      return false;
    }
    fetched += body;
    fetched += '\n';
  }
  texts = std::move(fetched);
  return true;
}

bool DownloadList(const BlocklistRow& row, std::vector<std::wstring>& entries,
                  std::wstring& error) {
  std::string texts;
  if (!FetchTexts(row, texts, error)) return false;
  std::vector<std::wstring> networks = ExtractNetworks(texts);
  if (networks.size() < kFewestEntries) {
    error = Format(L"the downloaded list has only %zu usable entries - kept the previous one",
                   networks.size());
    return false;
  }
  entries = std::move(networks);
  return true;
}

// Without its cache a list is in force until the service ends.
void SaveCache(const BlocklistRow& row, const BlocklistState& state) REQUIRES(BlocklistGuard) {
  (void)platform::MakeDirectory(DataDir() + L"\\blocklists");  // an existing one is as good
  std::wstring error;
  if (!AtomicWriteText(BlocklistCachePath(row), BlocklistCacheText(row, state), error)) {
    LogService(L"Cannot save blocklist '%s': %s", row.id, error);
  }
}

// Puts a downloaded list in the place of the previous one; whether they differ.
bool StoreList(const BlocklistRow& row, std::vector<std::wstring> entries)
    REQUIRES(BlocklistGuard) {
  BlocklistState next;
  next.entries = std::move(entries);
  next.updated = platform::SystemTime();
  next.source = L"download";
  SaveCache(row, next);
  BlocklistState& state = BlocklistStates[row.id];
  const bool changed = next.entries != state.entries;
  state = std::move(next);
  LogService(L"Blocklist '%s' downloaded: %zu entries%s", row.id, state.entries.size(),
             changed ? L"" : L" (unchanged)");
  return changed;
}

// Whether the list in force has changed.
bool RefreshList(const BlocklistRow& row) {
  std::vector<std::wstring> entries;
  std::wstring error;
  const bool usable = DownloadList(row, entries, error);
  GuardLock lock(BlocklistGuard);
  if (usable) return StoreList(row, std::move(entries));
  BlocklistStates[row.id].error = error;
  LogService(L"Blocklist '%s' was not updated: %s", row.id, error);
  return false;
}

// On the refresh thread.
void RefreshBlocklists(const std::vector<const BlocklistRow*>& rows, platform::Event& wake) {
  bool changed = false;
  for (const BlocklistRow* row : rows) {
    if (BlocklistFetchesCancelled()) break;
    if (RefreshList(*row)) changed = true;
  }
  if (changed) {
    Core.BlocklistsChanged = true;
    wake.Set();
  }
  BlocklistBusy = false;
}

// A list that has only the installed copy is due at once, and so is one that was fetched while the
// clock was ahead. The difference of the times could overflow: a cache file may name any time.
bool IsDue(const BlocklistState& state, std::int64_t now) {
  return state.source != L"download" || state.updated < now - kFreshFor || state.updated > now;
}

std::vector<const BlocklistRow*> ListsToRefresh(const Config& config, bool force) {
  const std::int64_t now = platform::SystemTime();
  std::vector<const BlocklistRow*> rows = EnabledBlocklists(config.blocklists);
  if (force) return rows;
  GuardLock lock(BlocklistGuard);
  std::erase_if(rows, [&](const BlocklistRow* row) REQUIRES(BlocklistGuard) {
    return !IsDue(BlocklistStates[row->id], now);
  });
  return rows;
}

bool MayStart(const Config& config, bool force, std::uint64_t tick) REQUIRES(ConfigGuard) {
  if (Core.Stopping || BlocklistFetchesCancelled()) return false;
  if (!config.enabled || BlocklistBusy) return false;
  if (force) return true;
  return config.blocklists_auto_update &&
         (BlocklistLastStart == 0 || tick - BlocklistLastStart >= kStartSpacingMs);
}

}  // namespace

void StartBlocklistRefresh(const Config& config, bool force) {
  const std::uint64_t tick = platform::TickMilliseconds();
  if (!MayStart(config, force, tick)) return;
  std::vector<const BlocklistRow*> rows = ListsToRefresh(config, force);
  if (rows.empty()) return;
  BlocklistLastStart = tick;
  BlocklistBusy = true;
  if (BlocklistThread.joinable()) BlocklistThread.join();  // it has done its work
  if (!StartThread(BlocklistThread,
                   [rows = std::move(rows)] { RefreshBlocklists(rows, Core.WakeEvent); })) {
    BlocklistBusy = false;
    LogService(L"Cannot start the refresh of the blocklists");
  }
}

bool BlocklistRefreshRunning() {
  return BlocklistBusy;
}

void StopBlocklistRefresh() {
  CancelBlocklistFetches();
  std::thread thread;
  {
    GuardLock lock(ConfigGuard);
    thread = std::move(BlocklistThread);
  }
  if (thread.joinable()) thread.join();
}

}  // namespace kestrelon

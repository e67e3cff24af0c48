#include "blocklists/blocklist_store.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

#include "base/format.h"
#include "base/text.h"
#include "blocklists/extract_networks.h"
#include "config/whole_file.h"
#include "core/data_dir.h"
#include "core/service_log.h"
#include "identity/paths.h"
#include "platform/files.h"

namespace kestrelon {
namespace {

constexpr std::uint32_t kFileTooLarge = 0x1000000;  // 16 MiB
constexpr std::string_view kUpdatedLabel = "# updated: ";
constexpr std::string_view kLineEnd = "\r\n";

bool ReadListFile(const std::wstring& path, std::string& text) {
  platform::Code ignored = platform::kSuccess;
  return ReadWholeFile(path, kFileTooLarge, text, ignored);
}

// The time that a cache gives; 0 when it gives none, or one that 64 bits don't hold.
std::int64_t UpdatedOf(std::string_view text) {
  std::int64_t updated = 0;
  const std::size_t label = text.find(kUpdatedLabel);
  if (label == std::string_view::npos) return updated;
  text.remove_prefix(label + kUpdatedLabel.size());
  if (text.starts_with('-')) return updated;  // digits only
  std::from_chars(text.data(), text.data() + text.size(), updated);
  return updated;
}

std::wstring InstalledPath(const std::wstring& url) {
  return ExecutableDirectory() + L"\\blocklists\\" + url.substr(url.rfind(L'/') + 1);
}

// Reads the installed copy of a list into `state`; whether it has entries.
bool LoadInstalledBlocklist(const BlocklistRow& row, BlocklistState& state) {
  std::string all;
  for (const std::wstring& url : row.urls) {
    const std::wstring path = InstalledPath(url);
    std::string text;
    if (!ReadListFile(path, text)) continue;
    all += text + "\n";
    platform::FileInformation information;
    if (platform::QueryFileInformation(path, information) != platform::kSuccess) continue;
    state.updated = std::max(state.updated, static_cast<std::int64_t>(information.write_time));
  }
  state.entries = ExtractNetworks(all);
  state.source = L"bundled";
  return !state.entries.empty();
}

}  // namespace

Guard BlocklistGuard("BlocklistGuard", GuardRank::kSubsystem);
std::map<std::wstring, BlocklistState> BlocklistStates;

bool LoadCachedBlocklist(const BlocklistRow& row, BlocklistState& state) {
  std::string text;
  if (!ReadListFile(BlocklistCachePath(row), text)) return false;
  state.updated = UpdatedOf(text);
  state.entries = ExtractNetworks(text);
  state.source = L"download";
  return !state.entries.empty();
}

std::wstring BlocklistCachePath(const BlocklistRow& row) {
  return DataDir() + L"\\blocklists\\" + row.id + L".txt";
}

std::string BlocklistCacheText(const BlocklistRow& row, const BlocklistState& state) {
  std::string text;
  const auto add_line = [&text](std::wstring_view line) {
    text += Utf8FromWide(line);
    text += kLineEnd;
  };
  add_line(L"# Kestrelon blocklist " + row.id);
  for (const std::wstring& url : row.urls) add_line(L"# source: " + url);
  add_line(Format(L"# updated: %lld", state.updated));
  for (const std::wstring& entry : state.entries) add_line(entry);
  return text;
}

void LoadBlocklists() {
  const GuardLock lock(BlocklistGuard);
  for (const BlocklistRow& row : BlocklistCatalog()) {
    BlocklistState state;
    if (!LoadCachedBlocklist(row, state)) {
      state = {};
      (void)LoadInstalledBlocklist(row, state);  // without a copy the list is empty
    }
    LogService(L"Blocklist '%s': %zu entries (%s)", row.id, state.entries.size(),
               state.source.empty() ? L"none" : state.source);
    BlocklistStates[row.id] = std::move(state);
  }
}

Json BlocklistStatus() {
  const GuardLock lock(BlocklistGuard);
  Json lists = Json::Array();
  for (const BlocklistRow& row : BlocklistCatalog()) {
    const BlocklistState& state = BlocklistStates[row.id];
    Json list = Json::Object();
    list["id"] = row.id;
    list["entries"] = std::uint64_t{state.entries.size()};
    list["updated"] = state.updated;
    list["source"] = state.source;
    if (!state.error.empty()) list["error"] = state.error;
    lists.Append(std::move(list));
  }
  return lists;
}

}  // namespace kestrelon

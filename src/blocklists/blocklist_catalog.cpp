#include "blocklists/blocklist_catalog.h"

#include <algorithm>
#include <string_view>

#include "config/config.h"
#include "deployment.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

// The row of an id, without regard to case; null if there is none.
const BlocklistRow* FindBlocklist(std::wstring_view id) {
  for (const BlocklistRow& row : BlocklistCatalog()) {
    if (platform::EqualIgnoringCase(row.id, id)) return &row;
  }
  return nullptr;
}

}  // namespace

const std::vector<BlocklistRow>& BlocklistCatalog() {
  static const std::vector<BlocklistRow> rows = {
      {.id = L"drop",
       .name = L"Malicious networks (Spamhaus DROP)",
       .direction = kDirectionBoth,
       .urls = {std::wstring(kFeedBase) + L"/drop/drop_v4.json",
                std::wstring(kFeedBase) + L"/drop/drop_v6.json"}},
  };
  return rows;
}

std::vector<const BlocklistRow*> EnabledBlocklists(const std::vector<std::wstring>& ids) {
  std::vector<const BlocklistRow*> rows;
  for (const std::wstring& id : ids) {
    const BlocklistRow* row = FindBlocklist(id);
    if (row != nullptr && std::find(rows.begin(), rows.end(), row) == rows.end()) {
      rows.push_back(row);
    }
  }
  return rows;
}

}  // namespace kestrelon

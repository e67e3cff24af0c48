#include "blocklists/blocklist_rules.h"

#include <string>
#include <string_view>
#include <utility>

#include "base/text.h"
#include "blocklists/blocklist_catalog.h"
#include "blocklists/blocklist_store.h"
#include "config/address_spec.h"
#include "core/own_way_out.h"

namespace kestrelon {
namespace {

// Bounds the text of one rule and the filters made of it.
constexpr std::size_t kChunkEntries = 200;

// Entries are any texts that a view can be made of.
template <typename Text>
void AppendBlockRules(std::vector<RuleEntry>& rules, const std::wstring& name,
                      std::uint32_t direction, const std::vector<Text>& entries) {
  for (std::size_t at = 0; at < entries.size(); ++at) {
    if (at % kChunkEntries == 0) {
      RuleEntry rule;
      rule.name = name;
      rule.allow = false;
      rule.direction = direction;
      rule.remote = entries[at];
      rules.push_back(std::move(rule));
    } else {
      rules.back().remote += L", ";
      rules.back().remote += entries[at];
    }
  }
}

void AppendListRules(const std::vector<const BlocklistRow*>& rows, std::vector<RuleEntry>& rules)
    EXCLUDES(BlocklistGuard) {
  const GuardLock lock(BlocklistGuard);
  for (const BlocklistRow* row : rows) {
    AppendBlockRules(rules, L"Blocklist: " + row->name, row->direction,
                     BlocklistStates[row->id].entries);
  }
}

// How many addresses and networks a text names; none if it can't be read.
std::size_t AddressCount(std::wstring_view text) {
  std::vector<AddressEntry> entries;
  std::wstring ignored;
  return ParseAddressSpec(text, entries, ignored) ? entries.size() : 0;
}

// A piece may hold several addresses with blanks between them; the compiler takes them apart. One
// that names none, such as "$dns", must not become a rule by itself: that would block everything.
void AppendCustomRules(const std::wstring& custom, std::vector<RuleEntry>& rules) {
  if (AddressCount(custom) == 0) return;
  std::vector<std::wstring_view> pieces = SplitAt(custom, L",;\r\n");
  for (std::wstring_view& piece : pieces) piece = Trim(piece);
  std::erase_if(pieces, [](std::wstring_view piece) { return AddressCount(piece) == 0; });
  AppendBlockRules(rules, L"Blocklist: Your own malicious networks", kDirectionBoth, pieces);
}

}  // namespace

void BlocklistRules(const Config& config, std::vector<RuleEntry>& rules) {
  const std::vector<const BlocklistRow*> rows = EnabledBlocklists(config.blocklists);
  AppendListRules(rows, rules);
  AppendCustomRules(config.custom_blocklist, rules);
  if (!rows.empty() && config.blocklists_auto_update) {
    AppendOwnWayOut(L"Kestrelon blocklist updates", rules);
  }
}

}  // namespace kestrelon

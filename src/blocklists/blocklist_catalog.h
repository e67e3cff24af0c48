// The blocklists that the product knows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kestrelon {

struct BlocklistRow {
  std::wstring id;
  std::wstring name;               // for people
  std::uint32_t direction = 0;     // as in RuleEntry
  std::vector<std::wstring> urls;  // HTTPS; their texts together are the list
};

// The rows in their fixed order; made once, never changed.
[[nodiscard]] const std::vector<BlocklistRow>& BlocklistCatalog();

// The rows that some ids name, without regard to case, each once, in the order of the ids; unknown
// ones are passed over.
[[nodiscard]] std::vector<const BlocklistRow*> EnabledBlocklists(
    const std::vector<std::wstring>& ids);

}  // namespace kestrelon

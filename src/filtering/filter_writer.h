// Filters come in groups: one rule or application makes the same filter for up to two directions
// and two address families. This writes a group out, record by record.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "filtering/filter_conditions.h"
#include "filtering/filter_engine.h"
#include "platform/wfp_records.h"

namespace kestrelon {

// Takes one finished record, which lacks only its key and id, and what the filter means. It may set
// the key and use up the tag, but must leave the conditions: the group's next filter has the same
// list, and one that lost its conditions would match everything. False ends the writing.
using FilterSink = std::function<bool(platform::Filter& filter, FilterTag& tag)>;

// What the filters of a group have in common, and which of them there are.
struct FilterGroup {
  std::wstring name;  // goes behind "Kestrelon - "
  bool allow = false;
  std::uint8_t weight = 0;
  FilterKind kind = FilterKind::kDefault;
  std::wstring tag;
  bool outbound = true;
  bool inbound = true;
  bool ipv4 = true;
  bool ipv6 = true;
};

class FilterWriter {
 public:
  explicit FilterWriter(const FilterSink& sink);

  // Gives each filter of the group to the sink, in the order of kFilterLayers, with the conditions
  // of its family. False as soon as the sink gives false. The lists are lent to the records, to
  // spare copies of long ones.
  [[nodiscard]] bool Write(const FilterGroup& group, ConditionList& ipv4, ConditionList& ipv6);

  // The same with one list for both families.
  [[nodiscard]] bool Write(const FilterGroup& group, ConditionList conditions);

 private:
  const FilterSink& sink_;
  platform::Filter filter_;
};

}  // namespace kestrelon

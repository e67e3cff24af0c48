#include "filtering/filter_writer.h"

#include "filtering/filter_keys.h"

namespace kestrelon {
namespace {

bool HasFilterAt(const FilterGroup& group, const FilterLayer& layer) {
  return (layer.direction == 0 ? group.outbound : group.inbound) &&
         (layer.family == 4 ? group.ipv4 : group.ipv6);
}

}  // namespace

FilterWriter::FilterWriter(const FilterSink& sink) : sink_(sink) {
  filter_.description = L"Kestrelon firewall";
  filter_.provider = ProviderKey;
  filter_.sublayer = SubLayerKey;
}

bool FilterWriter::Write(const FilterGroup& group, ConditionList& ipv4, ConditionList& ipv6) {
  filter_.name = L"Kestrelon - " + group.name;
  filter_.flags = group.allow ? kPermitFlags : kBlockFlags;
  filter_.weight = group.weight;
  filter_.action = group.allow ? platform::kActionPermit : platform::kActionBlock;
  for (const FilterLayer& layer : kFilterLayers) {
    if (!HasFilterAt(group, layer)) continue;
    filter_.layer = layer.key;
    FilterTag tag{layer.direction, group.kind, group.tag};
    ConditionList& conditions = layer.family == 4 ? ipv4 : ipv6;
    filter_.conditions.swap(conditions);
    const bool taken = sink_(filter_, tag);
    filter_.conditions.swap(conditions);
    if (!taken) return false;
  }
  return true;
}

bool FilterWriter::Write(const FilterGroup& group, ConditionList conditions) {
  return Write(group, conditions, conditions);
}

}  // namespace kestrelon

#include "simulation/engine/layer_fields.h"

#include <algorithm>
#include <array>

#include "platform/wfp_records.h"

namespace simulation {
namespace {

namespace platform = kestrelon::platform;
using kestrelon::MakeGuid;

struct LayerEntry {
  Guid key;
  Layer layer;
};

constexpr std::array<LayerEntry, kLayerCount> kLayers = {{
    {platform::kLayerRecvAcceptV4, {.index = 0, .id = 44, .ipv6 = false, .outbound = false}},
    {platform::kLayerRecvAcceptV6, {.index = 1, .id = 46, .ipv6 = true, .outbound = false}},
    {platform::kLayerConnectV4, {.index = 2, .id = 48, .ipv6 = false, .outbound = true}},
    {platform::kLayerConnectV6, {.index = 3, .id = 50, .ipv6 = true, .outbound = true}},
}};

constexpr Field Unmodelled(Guid key, FieldType type, bool outbound_only = false) {
  return {.key = key, .id = FieldId::kUnmodelled, .type = type, .outbound_only = outbound_only};
}

// The first group is what a connection has; the second, in the order of the platform's list, is
// known to the layers but never to a connection of the model.
constexpr std::array kFields = {
    Field{platform::kFieldProtocol, FieldId::kProtocol, FieldType::kUint8},
    Field{platform::kFieldLocalPort, FieldId::kLocalPort, FieldType::kUint16},
    Field{platform::kFieldRemotePort, FieldId::kRemotePort, FieldType::kUint16},
    Field{platform::kFieldFlags, FieldId::kFlags, FieldType::kUint32},
    Field{platform::kFieldLocalAddress, FieldId::kLocalAddress, FieldType::kAddress},
    Field{platform::kFieldRemoteAddress, FieldId::kRemoteAddress, FieldType::kAddress},
    Field{platform::kFieldPackageId, FieldId::kPackageId, FieldType::kSid},
    Field{platform::kFieldAppId, FieldId::kAppId, FieldType::kBlob},
    Field{platform::kFieldUserId, FieldId::kUserId, FieldType::kAccess},
    // Local interface, address types, original program, package family.
    Unmodelled(MakeGuid("4cd62a49-59c3-4969-b7f3-bda5d32890a4"), FieldType::kUint64),
    Unmodelled(MakeGuid("6ec7f6c4-376b-45d7-9e9c-d337cedcd237"), FieldType::kUint8),
    Unmodelled(MakeGuid("1ec1b7c9-4eea-4f5e-b9ef-76beaaaf17ee"), FieldType::kUint8, true),
    Unmodelled(MakeGuid("0e6cd086-e1fb-4212-842f-8a9f993fb3f6"), FieldType::kBlob, true),
    Unmodelled(MakeGuid("81bc78fb-f28d-4886-a604-6acc261f261b"), FieldType::kAccess),
    // Original ICMP type, reauthorization reason, compartment, interface index, arrival interface.
    Unmodelled(MakeGuid("076dfdbe-c56c-4f72-ae8a-2cfe7e5c8286"), FieldType::kUint16),
    Unmodelled(MakeGuid("11205e8c-11ae-457a-8a44-477026dd764a"), FieldType::kUint32),
    Unmodelled(MakeGuid("35a791ab-04ac-4ff2-a6bb-da6cfac71806"), FieldType::kUint32),
    Unmodelled(MakeGuid("667fd755-d695-434a-8af5-d3835a1259bc"), FieldType::kUint32),
    Unmodelled(MakeGuid("618a9b6d-386b-4136-ad6e-b51587cfb1cd"), FieldType::kUint64),
    // Original and current network profile.
    Unmodelled(MakeGuid("46ea1551-2255-492b-8019-aabeee349f40"), FieldType::kUint32),
    Unmodelled(MakeGuid("ab3033c9-c0e3-4759-937d-5758c65d4ae3"), FieldType::kUint32),
};

}  // namespace

const Layer* FindLayer(const Guid& key) {
  const auto found = std::find_if(kLayers.begin(), kLayers.end(),
                                  [&](const LayerEntry& entry) { return entry.key == key; });
  return found == kLayers.end() ? nullptr : &found->layer;
}

const Field* FindField(const Layer& layer, const Guid& key) {
  const auto found = std::find_if(kFields.begin(), kFields.end(),
                                  [&](const Field& field) { return field.key == key; });
  if (found == kFields.end() || (found->outbound_only && !layer.outbound)) return nullptr;
  return &*found;
}

}  // namespace simulation

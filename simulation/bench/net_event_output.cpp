#include "simulation/bench/net_event_output.h"

#include <algorithm>
#include <type_traits>

#include "platform/net_events.h"
#include "simulation/engine/layer_fields.h"

namespace simulation {
namespace {

using kestrelon::platform::ByteArray16;
using kestrelon::platform::Bytes;
using kestrelon::platform::FWPM_NET_EVENT5;
using kestrelon::platform::FWPM_NET_EVENT_CLASSIFY_ALLOW0;
using kestrelon::platform::FWPM_NET_EVENT_CLASSIFY_DROP2;

// A flag that the product doesn't ask for: the user's SID is there.
constexpr std::uint32_t kEventHasUserId = 0x40;
constexpr std::uint32_t kTypicalFlags =
    kestrelon::platform::kEventHasProtocol | kestrelon::platform::kEventHasLocalAddress |
    kestrelon::platform::kEventHasRemoteAddress | kestrelon::platform::kEventHasLocalPort |
    kestrelon::platform::kEventHasRemotePort | kestrelon::platform::kEventHasIpVersion;

// How drops tell their direction; allowed connections tell FWP_DIRECTION.
constexpr UINT32 kDropInbound = 0x3900;
constexpr UINT32 kDropOutbound = 0x3901;

// The null SID, S-1-0-0: what the engine names as the package of a program that is in none.
std::uint8_t null_sid[] = {1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

SID* NativeSid(Bytes& sid) {
  return reinterpret_cast<SID*>(sid.data());
}

void CopyAddress(const ByteArray16& address, FWP_BYTE_ARRAY16& native) {
  std::copy(address.begin(), address.end(), native.byteArray16);
}

template <typename Header>
void FillAddresses(const Connection& connection, bool v6, Header& header) {
  header.ipVersion = v6 ? FWP_IP_VERSION_V6 : FWP_IP_VERSION_V4;
  header.addressFamily = v6 ? FWP_AF_INET6 : FWP_AF_INET;
  if (v6) {
    CopyAddress(connection.local_v6, header.localAddrV6);
    CopyAddress(connection.remote_v6, header.remoteAddrV6);
  } else {
    header.localAddrV4 = connection.local_v4;
    header.remoteAddrV4 = connection.remote_v4;
  }
}

// What the headers of all ages have in common.
template <typename Header>
void FillHeader(NetEvent& event, const Layer& layer, Header& header) {
  Connection& connection = event.connection;
  const auto time = static_cast<std::uint64_t>(event.time);
  header.timeStamp = {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
  header.flags = kTypicalFlags;
  header.ipProtocol = connection.protocol;
  FillAddresses(connection, layer.ipv6, header);
  header.localPort = connection.local_port;
  header.remotePort = connection.remote_port;
  if (!connection.app_id.empty()) {
    header.flags |= kestrelon::platform::kEventHasAppId;
    header.appId = {static_cast<UINT32>(connection.app_id.size()), connection.app_id.data()};
  }
  if (!connection.user_sids.empty()) {
    header.flags |= kEventHasUserId;
    header.userId = NativeSid(connection.user_sids.front());
  }
}

template <typename Record>
void FillClassification(const NetEvent& event, const Layer& layer, Record& record) {
  record.filterId = event.filter_id;
  record.layerId = event.layer_id;
  if constexpr (std::is_same_v<Record, FWPM_NET_EVENT_CLASSIFY_ALLOW0>) {
    record.msFwpDirection = layer.outbound ? FWP_DIRECTION_OUTBOUND : FWP_DIRECTION_INBOUND;
  } else {
    record.msFwpDirection = layer.outbound ? kDropOutbound : kDropInbound;
  }
  const std::uint32_t loopback =
      event.connection.flags & kestrelon::platform::kConditionFlagLoopback;
  record.isLoopback = loopback != 0 ? TRUE : FALSE;
}

}  // namespace

void TellEvent(NetEvent& event, kestrelon::platform::FWPM_NET_EVENT_CALLBACK4 callback,
               void* context) {
  const Layer* const layer = FindLayer(event.connection.layer);
  if (layer == nullptr) return;
  FWPM_NET_EVENT5 native{};
  FillHeader(event, *layer, native.header);
  Bytes& package = event.connection.package_sid;
  native.header.flags |= kestrelon::platform::kEventHasPackageId;
  native.header.packageSid =
      package.empty() ? reinterpret_cast<SID*>(null_sid) : NativeSid(package);
  native.type = static_cast<UINT32>(event.type);
  FWPM_NET_EVENT_CLASSIFY_DROP2 drop{};
  FWPM_NET_EVENT_CLASSIFY_ALLOW0 allow{};
  if (event.type == NetEventType::kDrop) {
    FillClassification(event, *layer, drop);
    native.classifyDrop = &drop;
  } else {
    FillClassification(event, *layer, allow);
    native.classifyAllow = &allow;
  }
  callback(context, &native);
}

void TellEvent(NetEvent& event, FWPM_NET_EVENT_CALLBACK0 callback, void* context) {
  const Layer* const layer = FindLayer(event.connection.layer);
  if (layer == nullptr || event.type != NetEventType::kDrop) return;
  FWPM_NET_EVENT1 native{};
  FillHeader(event, *layer, native.header);
  native.type = FWPM_NET_EVENT_TYPE_CLASSIFY_DROP;
  FWPM_NET_EVENT_CLASSIFY_DROP1 drop{};
  FillClassification(event, *layer, drop);
  native.classifyDrop = &drop;
  callback(context, &native);
}

}  // namespace simulation

// What the machine's engine reports, behind the seam.
#include "platform/net_events.h"

#include "simulation/machine/machine.h"

namespace kestrelon::platform {
namespace {

using simulation::Connection;
using simulation::TheMachine;

// As an event of the authorization layers is filled. It points into `event`.
NetEvent SeamEvent(const simulation::NetEvent& event) {
  const Connection& connection = event.connection;
  const bool ipv6 = connection.layer == kLayerConnectV6 || connection.layer == kLayerRecvAcceptV6;
  NetEvent result;
  result.type = static_cast<std::uint32_t>(event.type);
  result.time = event.time;
  result.flags = kEventHasProtocol | kEventHasLocalAddress | kEventHasRemoteAddress |
                 kEventHasLocalPort | kEventHasRemotePort | kEventHasIpVersion;
  if (!connection.app_id.empty()) result.flags |= kEventHasAppId;
  if (!connection.package_sid.empty()) result.flags |= kEventHasPackageId;
  result.ip_version = ipv6 ? kIpV6 : kIpV4;
  result.protocol = connection.protocol;
  result.local_v4 = connection.local_v4;
  result.remote_v4 = connection.remote_v4;
  result.local_v6 = connection.local_v6;
  result.remote_v6 = connection.remote_v6;
  result.local_port = connection.local_port;
  result.remote_port = connection.remote_port;
  result.app_id = connection.app_id;
  result.package_sid = connection.package_sid;
  result.classification = {.filter_id = event.filter_id,
                           .layer_id = event.layer_id,
                           .is_loopback = (connection.flags & kConditionFlagLoopback) != 0};
  return result;
}

// The record of the first version knows drops alone and no package.
void TellOldest(const simulation::NetEvent& event, NetEventCallback callback, void* context) {
  if (event.type != simulation::NetEventType::kDrop) return;
  NetEvent told = SeamEvent(event);
  told.flags &= ~static_cast<std::uint32_t>(kEventHasPackageId);
  told.package_sid = {};
  callback(context, &told);
}

}  // namespace

Code SubscribeNetEvents(EngineHandle engine, NetEventRecord record, NetEventCallback callback,
                        void* context, SubscriptionHandle& subscription) {
  if (const Code fault = TheMachine().faults.Next("SubscribeNetEvents")) return fault;
  const bool newest = record == NetEventRecord::kNewest;
  if (newest && !TheMachine().environment.engine_has_newest_events) return kProcedureNotFound;
  const auto tell = [=](const simulation::NetEvent& event) {
    if (!newest) return TellOldest(event, callback, context);
    const NetEvent told = SeamEvent(event);
    callback(context, &told);
  };
  simulation::SubscriptionId id = 0;
  const Code code = TheMachine().engine.SubscribeNetEvents(engine, tell, id);
  if (code == kSuccess) subscription = static_cast<SubscriptionHandle>(id);
  return code;
}

Code UnsubscribeNetEvents(EngineHandle engine, SubscriptionHandle subscription) {
  const Code fault = TheMachine().faults.Next("UnsubscribeNetEvents");
  const Code code = TheMachine().engine.UnsubscribeNetEvents(engine, subscription);
  return fault != kSuccess ? fault : code;
}

Code SetOption(EngineHandle engine, EngineOption option, std::uint32_t value) {
  if (const Code fault = TheMachine().faults.Next("SetOption")) return fault;
  return TheMachine().engine.SetOption(engine, option, value);
}

Code LayerId(EngineHandle engine, const Guid& layer, std::uint16_t& id) {
  if (const Code fault = TheMachine().faults.Next("LayerId")) return fault;
  return TheMachine().engine.LayerId(engine, layer, id);
}

}  // namespace kestrelon::platform

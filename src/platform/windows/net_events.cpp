#include "platform/net_events.h"

#include "platform/windows/net_event_native.h"
#include "platform/windows/system_library.h"
#include "platform/windows/wfp_native.h"

#include <algorithm>
#include <iterator>
#include <memory>

namespace kestrelon::platform {
namespace {

struct Subscription {
  NetEventCallback callback = nullptr;
  void* context = nullptr;
  HANDLE handle = nullptr;
};

std::int64_t TimeOf(const FILETIME& time) {
  return static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
}

std::span<const std::uint8_t> BlobOf(const FWP_BYTE_BLOB& blob) {
  if (blob.data == nullptr) return {};
  return {blob.data, blob.size};
}

std::span<const std::uint8_t> SidOf(SID* sid) {
  if (sid == nullptr) return {};
  return {reinterpret_cast<const std::uint8_t*>(sid), GetLengthSid(sid)};
}

void CopyAddress(const FWP_BYTE_ARRAY16& native, ByteArray16& address) {
  std::copy(std::begin(native.byteArray16), std::end(native.byteArray16), address.begin());
}

// What the headers of all ages have in common. What lies behind a pointer counts only by its flag.
template <typename Header>
NetEvent EventOfHeader(const Header& header) {
  NetEvent event;
  event.time = TimeOf(header.timeStamp);
  event.flags = header.flags;
  event.ip_version = static_cast<std::uint32_t>(header.ipVersion);
  event.protocol = header.ipProtocol;
  if (event.ip_version == kIpV4) {
    event.local_v4 = header.localAddrV4;
    event.remote_v4 = header.remoteAddrV4;
  } else if (event.ip_version == kIpV6) {
    CopyAddress(header.localAddrV6, event.local_v6);
    CopyAddress(header.remoteAddrV6, event.remote_v6);
  }
  event.local_port = header.localPort;
  event.remote_port = header.remotePort;
  if ((header.flags & kEventHasAppId) != 0) event.app_id = BlobOf(header.appId);
  return event;
}

template <typename Record>
std::optional<Classification> ClassificationOf(const Record* record) {
  if (record == nullptr) return std::nullopt;
  return Classification{record->filterId, record->layerId, record->isLoopback != FALSE};
}

NetEvent EventOf(const FWPM_NET_EVENT5& native) {
  NetEvent event = EventOfHeader(native.header);
  event.type = native.type;
  if ((event.flags & kEventHasPackageId) != 0) event.package_sid = SidOf(native.header.packageSid);
  if (event.type == kEventClassifyDrop) {
    event.classification = ClassificationOf(native.classifyDrop);
  } else if (event.type == kEventClassifyAllow) {
    event.classification = ClassificationOf(native.classifyAllow);
  }
  return event;
}

NetEvent EventOf(const FWPM_NET_EVENT1& native) {
  NetEvent event = EventOfHeader(native.header);
  event.type = static_cast<std::uint32_t>(native.type);
  if (event.type == kEventClassifyDrop)
    event.classification = ClassificationOf(native.classifyDrop);
  return event;
}

template <typename Native>
void CALLBACK OnEvent(void* context, const Native* native) {
  const auto* const subscription = static_cast<const Subscription*>(context);
  if (native == nullptr) {
    subscription->callback(subscription->context, nullptr);
    return;
  }
  const NetEvent event = EventOf(*native);
  subscription->callback(subscription->context, &event);
}

Code SubscribeNewest(HANDLE engine, Subscription& state) {
  const SystemFunction<NetEventSubscribe4> subscribe(L"fwpuclnt.dll", "FwpmNetEventSubscribe4");
  if (!subscribe) return kProcedureNotFound;
  const FWPM_NET_EVENT_SUBSCRIPTION0 everything{};
  return subscribe(engine, &everything, OnEvent<FWPM_NET_EVENT5>, &state, &state.handle);
}

Code SubscribeOldest(HANDLE engine, Subscription& state) {
  const FWPM_NET_EVENT_SUBSCRIPTION0 everything{};
  return FwpmNetEventSubscribe0(engine, &everything, OnEvent<FWPM_NET_EVENT1>, &state,
                                &state.handle);
}

}  // namespace

Code SubscribeNetEvents(EngineHandle engine, NetEventRecord record, NetEventCallback callback,
                        void* context, SubscriptionHandle& subscription) {
  auto state = std::make_unique<Subscription>();
  state->callback = callback;
  state->context = context;
  const HANDLE native = NativeHandle(engine);
  const Code code = record == NetEventRecord::kNewest ? SubscribeNewest(native, *state)
                                                      : SubscribeOldest(native, *state);
  if (code == kSuccess) subscription = reinterpret_cast<SubscriptionHandle>(state.release());
  return code;
}

Code UnsubscribeNetEvents(EngineHandle engine, SubscriptionHandle subscription) {
  std::unique_ptr<Subscription> state(reinterpret_cast<Subscription*>(subscription));
  const Code code = FwpmNetEventUnsubscribe0(NativeHandle(engine), state->handle);
  // Only a success promises that no callback is running or will run: otherwise the state stays.
  if (code != kSuccess) (void)state.release();
  return code;
}

Code SetOption(EngineHandle engine, EngineOption option, std::uint32_t value) {
  FWP_VALUE0 native{};
  native.type = FWP_UINT32;
  native.uint32 = value;
  return FwpmEngineSetOption0(NativeHandle(engine), static_cast<FWPM_ENGINE_OPTION>(option),
                              &native);
}

Code LayerId(EngineHandle engine, const Guid& layer, std::uint16_t& id) {
  const GUID key = NativeGuid(layer);
  Owned<FWPM_LAYER0*, FreeEngineMemory> found;
  const Code code = FwpmLayerGetByKey0(NativeHandle(engine), &key, found.Receive());
  if (code == kSuccess) id = found.get()->layerId;
  return code;
}

}  // namespace kestrelon::platform

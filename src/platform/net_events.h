// What the filtering engine reports of connections, and the options that decide what it reports.
//
// Options are the machine's: they hold for all sessions and outlive the one that set them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/codes.h"
#include "platform/wfp.h"

namespace kestrelon::platform {

enum EngineOption : std::uint32_t {
  kCollectNetEvents = 0,  // 0 or 1
  kNetEventKeywords = 1,  // NetEventKeywords, added to what is reported anyway
};
enum NetEventKeywords : std::uint32_t {
  kKeywordInboundMulticast = 0x1,
  kKeywordInboundBroadcast = 0x2,
  kKeywordClassifyAllow = 0x10,
};

enum NetEventType : std::uint32_t {
  kEventClassifyDrop = 3,
  kEventClassifyAllow = 6,
};

// Which fields of an event are filled.
enum NetEventFlags : std::uint32_t {
  kEventHasProtocol = 0x1,
  kEventHasLocalAddress = 0x2,
  kEventHasRemoteAddress = 0x4,
  kEventHasLocalPort = 0x8,
  kEventHasRemotePort = 0x10,
  kEventHasAppId = 0x20,
  kEventHasIpVersion = 0x100,
  kEventHasPackageId = 0x400,
};

enum IpVersion : std::uint32_t {
  kIpV4 = 0,
  kIpV6 = 1,
};

// What the engine decided, by which filter.
struct Classification {
  std::uint64_t filter_id = 0;  // may be of a filter that is gone by now
  std::uint16_t layer_id = 0;   // see LayerId
  bool is_loopback = false;
};

// One event. It and what it points at are the engine's and end with the callback.
struct NetEvent {
  std::uint32_t type = 0;        // NetEventType, or one that the product doesn't know
  std::int64_t time = 0;         // 100 ns steps since 1601-01-01 UTC
  std::uint32_t flags = 0;       // NetEventFlags
  std::uint32_t ip_version = 0;  // IpVersion, or another one
  std::uint8_t protocol = 0;
  // The pair of the version counts. Host order; the 16 bytes in network order.
  std::uint32_t local_v4 = 0;
  std::uint32_t remote_v4 = 0;
  ByteArray16 local_v6{};
  ByteArray16 remote_v6{};
  std::uint16_t local_port = 0;
  std::uint16_t remote_port = 0;
  std::span<const std::uint8_t> app_id;       // device path, UTF-16 with its null
  std::span<const std::uint8_t> package_sid;  // binary form
  // Of the type kEventClassifyDrop and kEventClassifyAllow; nothing when the engine left it out.
  std::optional<Classification> classification;
};

// Called on a thread of the engine's, maybe on several at a time; must not throw, and must not call
// the engine on the subscribed session. `event` may be null.
using NetEventCallback = void (*)(void* context, const NetEvent* event);

// The newest record tells of drops and allowed connections (FwpmNetEventSubscribe4, Windows 10 1809
// and later; kProcedureNotFound where the system lacks it), the oldest of drops only, without a
// package (FwpmNetEventSubscribe0).
enum class NetEventRecord { kNewest, kOldest };

// Subscribes to all events from now on.
[[nodiscard]] Code SubscribeNetEvents(EngineHandle engine, NetEventRecord record,
                                      NetEventCallback callback, void* context,
                                      SubscriptionHandle& subscription);
// Waits for running callbacks, and must not be called by one.
Code UnsubscribeNetEvents(EngineHandle engine, SubscriptionHandle subscription);

// Sets a number of the machine's. Refused to dynamic sessions and inside transactions.
[[nodiscard]] Code SetOption(EngineHandle engine, EngineOption option, std::uint32_t value);

// The number by which events name a layer.
[[nodiscard]] Code LayerId(EngineHandle engine, const Guid& layer, std::uint16_t& id);

}  // namespace kestrelon::platform

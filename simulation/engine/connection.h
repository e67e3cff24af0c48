// What is put to the engine for a verdict, and the verdict.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/security.h"
#include "platform/wfp_records.h"

namespace simulation {

namespace platform = kestrelon::platform;
using kestrelon::Guid;

// A connection as the engine sees it at one of its authorization layers.
struct Connection {
  Guid layer = platform::kLayerConnectV4;  // direction and address family
  platform::Bytes app_id{};                // lower-case device path, UTF-16 with its null
  std::vector<platform::Sid> user_sids{};  // of the process's token: user, groups, services
  platform::Sid package_sid{};             // empty: not an app package
  std::uint8_t protocol = 6;
  // The pair of the layer's family counts. Host order; the 16 bytes in network order.
  std::uint32_t local_v4 = 0;
  std::uint32_t remote_v4 = 0;
  platform::ByteArray16 local_v6{};
  platform::ByteArray16 remote_v6{};
  std::uint16_t local_port = 0;   // for ICMP the type
  std::uint16_t remote_port = 0;  // for ICMP the code
  std::uint32_t flags = 0;        // bits of the FLAGS field, such as kConditionFlagLoopback
};

// What one sublayer said; a sublayer without a matching filter says nothing.
struct SublayerVerdict {
  Guid sublayer;
  bool permit = false;
  bool hard = false;  // later sublayers can't change it
  std::shared_ptr<const platform::Filter> filter;
};

struct Verdict {
  bool permit = true;  // no matching filter anywhere: the connection proceeds
  std::shared_ptr<const platform::Filter> filter;  // the deciding one; null if none matched
  std::vector<SublayerVerdict> sublayers;          // from the highest weight to the lowest
  // Two matching filters of one sublayer have the same effective weight and disagree: real
  // engines promise nothing then, so a test that meets this has found a fault.
  bool tied_conflict = false;
};

enum class NetEventType : std::uint8_t { kDrop = 3, kAllow = 6 };

struct NetEvent {
  NetEventType type = NetEventType::kDrop;
  std::int64_t time = 0;        // by the engine's clock (Engine::SetClock)
  std::uint64_t filter_id = 0;  // 0: no filter matched
  std::uint16_t layer_id = 0;
  Connection connection;
};

}  // namespace simulation

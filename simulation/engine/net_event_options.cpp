#include "simulation/engine/net_event_options.h"

#include "platform/net_events.h"

namespace simulation {
namespace {

using platform::Code;

constexpr Code kOutOfBounds = 0x80320028;
constexpr std::uint32_t kAllKeywords = 0x3F;

// The keyword without which a drop isn't reported; 0 for what is reported anyway. The broadcast
// address of a network can't be told without its mask and counts as unicast.
std::uint32_t KeywordOfDrop(const Layer& layer, const Connection& connection) {
  if (layer.outbound) return 0;
  const bool multicast = layer.ipv6 ? connection.local_v6[0] == 0xFF     // ff00::/8
                                    : connection.local_v4 >> 28 == 0xE;  // 224.0.0.0/4
  if (multicast) return platform::kKeywordInboundMulticast;
  if (!layer.ipv6 && connection.local_v4 == 0xFFFFFFFF) return platform::kKeywordInboundBroadcast;
  return 0;
}

}  // namespace

// Undocumented: the codes for an unknown option and for a value that it can't have.
Code NetEventOptions::Set(std::uint32_t option, std::uint32_t value) {
  switch (option) {
    case platform::kCollectNetEvents:
      if (value > 1) return kOutOfBounds;
      collect = value != 0;
      return platform::kSuccess;
    case platform::kNetEventKeywords:
      if ((value & ~kAllKeywords) != 0) return platform::kInvalidFlags;
      keywords = value;
      return platform::kSuccess;
    default:
      return platform::kInvalidEnumerator;
  }
}

Code NetEventOptions::Get(std::uint32_t option, std::uint32_t& value) const {
  switch (option) {
    case platform::kCollectNetEvents:
      value = collect ? 1 : 0;
      return platform::kSuccess;
    case platform::kNetEventKeywords:
      value = keywords;
      return platform::kSuccess;
    default:
      return platform::kInvalidEnumerator;
  }
}

bool NetEventOptions::Report(const Layer& layer, const Connection& connection, bool permit) const {
  if (!collect) return false;
  if (permit) return (keywords & platform::kKeywordClassifyAllow) != 0;
  const std::uint32_t needed = KeywordOfDrop(layer, connection);
  return (keywords & needed) == needed;
}

}  // namespace simulation

// Plain records of what the filtering platform stores: what platform/wfp.h takes and gives.
//
// Addresses and ports are in host order, IPv6 addresses are 16 bytes in network order, as the
// platform has them.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "base/guid.h"

namespace kestrelon::platform {

using Bytes = std::vector<std::uint8_t>;
using ByteArray16 = std::array<std::uint8_t, 16>;

struct Ipv4Mask {
  std::uint32_t address = 0;
  std::uint32_t mask = 0;
  friend bool operator==(const Ipv4Mask&, const Ipv4Mask&) = default;
};

struct Ipv6Mask {
  ByteArray16 address{};
  std::uint8_t prefix = 0;  // 0..128
  friend bool operator==(const Ipv6Mask&, const Ipv6Mask&) = default;
};

// The values that may stand at the ends of a range.
using RangeEnd = std::variant<std::monostate, std::uint8_t, std::uint16_t, std::uint32_t,
                              std::uint64_t, ByteArray16>;

struct ValueRange {
  RangeEnd low;
  RangeEnd high;
  friend bool operator==(const ValueRange&, const ValueRange&) = default;
};

struct ByteBlob {
  Bytes bytes;
  friend bool operator==(const ByteBlob&, const ByteBlob&) = default;
};

struct SidValue {
  Bytes sid;  // binary form
  friend bool operator==(const SidValue&, const SidValue&) = default;
};

struct DescriptorValue {
  Bytes descriptor;  // self-relative binary form
  friend bool operator==(const DescriptorValue&, const DescriptorValue&) = default;
};

// A value of a type that the product never writes, or one that the platform holds by a null
// pointer; only the type's number is kept.
struct OtherValue {
  std::uint32_t type = 0;
  friend bool operator==(const OtherValue&, const OtherValue&) = default;
};

// A weight or the operand of a condition (FWP_VALUE0, FWP_CONDITION_VALUE0). std::monostate is
// the empty value.
using Value = std::variant<std::monostate, std::uint8_t, std::uint16_t, std::uint32_t,
                           std::uint64_t, ByteArray16, ByteBlob, SidValue, DescriptorValue,
                           Ipv4Mask, Ipv6Mask, ValueRange, OtherValue>;

// Numbers of the platform's data types (FWP_DATA_TYPE) that the product meets.
enum DataType : std::uint32_t {
  kTypeEmpty = 0,
  kTypeUint8 = 1,
  kTypeUint16 = 2,
  kTypeUint32 = 3,
  kTypeUint64 = 4,
  kTypeByteArray16 = 11,
  kTypeByteBlob = 12,
  kTypeSid = 13,
  kTypeSecurityDescriptor = 14,
  kTypeIpv4Mask = 0x100,
  kTypeIpv6Mask = 0x101,
  kTypeRange = 0x102,
};

enum MatchType : std::uint32_t {
  kMatchEqual = 0,
  kMatchGreater = 1,
  kMatchLess = 2,
  kMatchGreaterOrEqual = 3,
  kMatchLessOrEqual = 4,
  kMatchRange = 5,
  kMatchFlagsAllSet = 6,
  kMatchFlagsAnySet = 7,
  kMatchFlagsNoneSet = 8,
  kMatchEqualIgnoringCase = 9,
  kMatchNotEqual = 10,
};

enum FilterFlags : std::uint32_t {
  kFilterPersistent = 0x1,
  kFilterBootTime = 0x2,
  kFilterHasProviderContext = 0x4,
  kFilterClearActionRight = 0x8,
  kFilterDisabled = 0x20,
  kFilterIndexed = 0x40,
};
inline constexpr std::uint32_t kProviderPersistent = 0x1;
inline constexpr std::uint32_t kSublayerPersistent = 0x1;
inline constexpr std::uint32_t kSessionDynamic = 0x1;
inline constexpr std::uint32_t kTransactionReadOnly = 0x1;
inline constexpr std::uint32_t kNotifyOnAdd = 0x1;
inline constexpr std::uint32_t kNotifyOnDelete = 0x2;

inline constexpr std::uint32_t kActionBlock = 0x1001;
inline constexpr std::uint32_t kActionPermit = 0x1002;

// Bit of the FLAGS condition: the connection stays on this machine.
inline constexpr std::uint32_t kConditionFlagLoopback = 0x1;

struct Condition {
  Guid field;
  std::uint32_t match = kMatchEqual;  // MatchType
  Value value;
  friend bool operator==(const Condition&, const Condition&) = default;
};

struct Filter {
  Guid key;  // all zero: the engine makes one
  std::wstring name;
  std::wstring description;
  std::uint32_t flags = 0;  // FilterFlags
  std::optional<Guid> provider;
  Guid layer;
  Guid sublayer;  // all zero: the layer's default one
  Value weight;
  std::vector<Condition> conditions;  // in the engine's order
  std::uint32_t action = kActionBlock;
  std::uint64_t id = 0;  // given by the engine
};

struct Provider {
  Guid key;
  std::wstring name;
  std::wstring description;
  std::uint32_t flags = 0;
  std::wstring service_name;  // empty for none
};

struct Sublayer {
  Guid key;
  std::wstring name;
  std::wstring description;
  std::uint32_t flags = 0;
  std::optional<Guid> provider;
  std::uint16_t weight = 0;
};

// Layers and condition fields by the platform's published keys.
inline constexpr Guid kLayerConnectV4 = MakeGuid("c38d57d1-05a7-4c33-904f-7fbceee60e82");
inline constexpr Guid kLayerConnectV6 = MakeGuid("4a72393b-319f-44bc-84c3-ba54dcb3b6b4");
inline constexpr Guid kLayerRecvAcceptV4 = MakeGuid("e1cd9fe7-f4b5-4273-96c0-592e487b8650");
inline constexpr Guid kLayerRecvAcceptV6 = MakeGuid("a3b42c97-9f04-4672-b87e-cee9c483257f");

inline constexpr Guid kFieldProtocol = MakeGuid("3971ef2b-623e-4f9a-8cb1-6e79b806b9a7");
inline constexpr Guid kFieldLocalAddress = MakeGuid("d9ee00de-c1ef-4617-bfe3-ffd8f5a08957");
inline constexpr Guid kFieldRemoteAddress = MakeGuid("b235ae9a-1d64-49b8-a44c-5ff3d9095045");
inline constexpr Guid kFieldLocalPort = MakeGuid("0c1ba1af-5765-453f-af22-a8f791ac775b");
inline constexpr Guid kFieldRemotePort = MakeGuid("c35a604d-d22b-4e1a-91b4-68f674ee674b");
inline constexpr Guid kFieldAppId = MakeGuid("d78e1e87-8644-4ea5-9437-d809ecefc971");
inline constexpr Guid kFieldPackageId = MakeGuid("71bc78fa-f17c-4997-a602-6abb261f351c");
inline constexpr Guid kFieldUserId = MakeGuid("af043a0a-b34d-4f86-979c-c90371af6e66");
inline constexpr Guid kFieldFlags = MakeGuid("632ce23b-5167-435c-86d7-e903684aa80c");

}  // namespace kestrelon::platform

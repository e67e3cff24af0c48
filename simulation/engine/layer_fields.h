// The authorization layers and the fields that conditions may name there.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/guid.h"

namespace simulation {

using kestrelon::Guid;

// The sublayer that is always there and the default of every layer.
inline constexpr Guid kUniversalSublayer =
    kestrelon::MakeGuid("eebecc03-ced4-4380-819a-2734397b2b74");

// In the order of what a comparison costs. kUnmodelled stands for fields that a connection of the
// model doesn't have: their value is always unknown.
enum class FieldId : std::uint8_t {
  kProtocol,
  kLocalPort,
  kRemotePort,
  kFlags,
  kLocalAddress,
  kRemoteAddress,
  kPackageId,
  kAppId,
  kUserId,
  kUnmodelled,
};

enum class FieldType : std::uint8_t {
  kUint8,
  kUint16,
  kUint32,
  kUint64,
  kAddress,  // of the layer's family
  kBlob,
  kSid,
  kAccess,  // met by a security descriptor
};

struct Layer {
  std::size_t index = 0;  // 0..kLayerCount-1
  std::uint16_t id = 0;   // what net events say
  bool ipv6 = false;
  bool outbound = false;
};

struct Field {
  Guid key;
  FieldId id = FieldId::kUnmodelled;
  FieldType type = FieldType::kUint32;
  bool outbound_only = false;
};

inline constexpr std::size_t kLayerCount = 4;

// Null for a layer that isn't modelled.
[[nodiscard]] const Layer* FindLayer(const Guid& key);

// Null where the layer has no such field.
[[nodiscard]] const Field* FindField(const Layer& layer, const Guid& key);

}  // namespace simulation

// The fixed keys, weights and flags of the product's objects in the filtering engine.
//
// One sublayer holds all filters, so precedence is the weight alone: the higher one wins, and the
// order in which filters are added does not matter. A weight goes to the engine as one byte 0..15,
// its weight range.
#pragma once

#include <array>
#include <cstdint>

#include "base/guid.h"
#include "platform/wfp_records.h"

namespace kestrelon {

inline constexpr Guid ProviderKey = MakeGuid("{6B2A1F30-7C4E-4D8A-9F13-2E5B8C71A0D4}");
inline constexpr Guid SubLayerKey = MakeGuid("{9D4E6A12-3B7F-4C21-8E95-A1C3F0B2D746}");

// Filters that protect before the engine has started, numbered by their last byte.
inline constexpr std::array<Guid, 8> BootFilterKeys = {
    MakeGuid("{E1B7C3A0-5D2F-4A6E-B8AD-0F1E2D3C4B50}"),
    MakeGuid("{E1B7C3A0-5D2F-4A6E-B8AD-0F1E2D3C4B51}"),
    MakeGuid("{E1B7C3A0-5D2F-4A6E-B8AD-0F1E2D3C4B52}"),
    MakeGuid("{E1B7C3A0-5D2F-4A6E-B8AD-0F1E2D3C4B53}"),
    MakeGuid("{E1B7C3A0-5D2F-4A6E-B8AD-0F1E2D3C4B54}"),
    MakeGuid("{E1B7C3A0-5D2F-4A6E-B8AD-0F1E2D3C4B55}"),
    MakeGuid("{E1B7C3A0-5D2F-4A6E-B8AD-0F1E2D3C4B56}"),
    MakeGuid("{E1B7C3A0-5D2F-4A6E-B8AD-0F1E2D3C4B57}"),
};

// Where filters stand: every filter is for one direction and one address family. In this order the
// filters of a rule or an application are made.
struct FilterLayer {
  std::uint32_t direction = 0;  // 0 outbound, 1 inbound
  std::uint32_t family = 4;     // 4 or 6
  Guid key;
};

inline constexpr std::array<FilterLayer, 4> kFilterLayers = {{
    {0, 4, platform::kLayerConnectV4},
    {0, 6, platform::kLayerConnectV6},
    {1, 4, platform::kLayerRecvAcceptV4},
    {1, 6, platform::kLayerRecvAcceptV6},
}};

inline constexpr std::uint16_t kSublayerWeight = 65535;  // the highest there is

inline constexpr std::uint8_t kWeightIntegrityBlock = 15;
inline constexpr std::uint8_t kWeightLoopback = 14;
inline constexpr std::uint8_t kWeightRuleBlock = 13;
inline constexpr std::uint8_t kWeightAppBlock = 12;
inline constexpr std::uint8_t kWeightRuleAllow = 11;
inline constexpr std::uint8_t kWeightAppAllow = 10;
inline constexpr std::uint8_t kWeightServiceBlock = 1;
inline constexpr std::uint8_t kWeightBlockAll = 0;

inline constexpr std::uint32_t kPermitFlags =
    platform::kFilterPersistent | platform::kFilterIndexed;
// A block can't be overruled from any other sublayer.
inline constexpr std::uint32_t kBlockFlags =
    platform::kFilterPersistent | platform::kFilterClearActionRight | platform::kFilterIndexed;

}  // namespace kestrelon

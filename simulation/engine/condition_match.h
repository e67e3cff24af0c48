// Conditions made ready for quick comparison with connections.
#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <vector>

#include "simulation/engine/access.h"
#include "simulation/engine/connection.h"
#include "simulation/engine/layer_fields.h"

namespace simulation {

// Wide enough for every number of a connection: IPv6 addresses by their 16 bytes, all else in
// `low`.
struct WideNumber {
  std::uint64_t high = 0;
  std::uint64_t low = 0;
  friend constexpr auto operator<=>(const WideNumber&, const WideNumber&) = default;
};

// One condition. Numbers are compared with the interval first..last, so that masks, prefixes and
// all orders are one case.
struct CompiledCondition {
  enum class Test : std::uint8_t { kIsEmpty, kInterval, kFlags, kBytes, kAccess };

  FieldId field = FieldId::kProtocol;
  Test test = Test::kInterval;
  std::uint32_t match = 0;  // for kFlags and kBytes
  bool negated = false;     // for kInterval
  WideNumber first;         // for kFlags the bits
  WideNumber last;
  Bytes bytes;
  std::shared_ptr<const ObjectSecurity> security;
};

// The conditions of a filter: each group holds alternatives, and every group must be met.
using ConditionGroups = std::vector<std::vector<CompiledCondition>>;

// Makes the groups of a filter that ValidateFilter passed.
[[nodiscard]] ConditionGroups CompileConditions(const platform::Filter& filter);

// A connection with what is worked out once for all filters. The connection must outlive it.
struct Subject {
  explicit Subject(const Connection& of);
  const Connection& connection;
  WideNumber local_address;
  WideNumber remote_address;
};

[[nodiscard]] bool Matches(const ConditionGroups& groups, const Subject& subject);

}  // namespace simulation

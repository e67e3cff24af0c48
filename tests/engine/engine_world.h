// What the cases of the engine's model start from: a running engine, a session of LocalSystem, and
// a persistent provider and sublayer of the case's own.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simulation/engine/engine.h"

namespace simulation {

using platform::Condition;
using platform::Filter;
using platform::Value;

// A well-known key for each small number.
Guid Key(std::uint8_t number);

// A self-relative descriptor with these entries, cut off from what a container passes on.
Bytes DescriptorOf(const std::vector<AccessEntry>& entries);

// A user's access descriptor, as conditions hold it.
Value UserCondition(const std::vector<AccessEntry>& entries);

// The UTF-16 bytes of a device path, with its null.
Bytes AppId(const std::wstring& path);

class EngineWorld : public testing::Test {
 protected:
  EngineWorld();
  // No case may leave a transaction behind.
  ~EngineWorld() override { EXPECT_FALSE(engine.transaction_open()); }

  SessionId Open(const Caller& caller, std::uint32_t flags = 0);

  // A static filter in this world's sublayer that the engine takes: outbound, IPv4, blocking.
  Filter SomeFilter(std::uint32_t action = platform::kActionBlock, Value weight = std::uint8_t{8},
                    std::vector<Condition> conditions = {}) const;
  // The same with Key(key).
  Filter WithKey(std::uint8_t key, std::uint32_t flags = 0) const;
  // A sublayer of this world's provider.
  Code AddSublayer(const Guid& key, std::uint32_t flags, std::uint16_t weight);
  Code Add(const Filter& filter) { return AddAs(session, filter); }
  Code AddAs(SessionId as, const Filter& filter, const Bytes& descriptor = {});
  // Deletes all filters.
  void Clear();

  bool Has(const Guid& key);
  bool Permits(const Connection& connection = {}) { return engine.Classify(connection).permit; }

  static constexpr Guid kProvider = kestrelon::MakeGuid("00000001-0000-0000-0000-00000000aaaa");
  static constexpr Guid kSublayer = kestrelon::MakeGuid("00000002-0000-0000-0000-00000000aaaa");

  Engine engine;
  SessionId session = 0;
};

}  // namespace simulation

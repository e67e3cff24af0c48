// What the cases of the filtering engine start from: an open session with a provider and a
// sublayer of the case's own.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/wfp.h"

namespace contract {

using namespace kestrelon::platform;
using kestrelon::Guid;

// A session that closes itself.
class Session {
 public:
  explicit Session(std::uint32_t flags = 0, std::uint32_t transaction_wait_ms = 5000);
  ~Session() { Close(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void Close();
  operator EngineHandle() const { return handle_; }

 private:
  EngineHandle handle_ = 0;
};

Guid FreshGuid();

class WfpWorld : public testing::Test {
 protected:
  WfpWorld();
  // Removes what the case left, so that no case meets the filters of another.
  ~WfpWorld() override;

  // A filter of this world that the engine takes: blocks an address, outbound, IPv4.
  Filter SomeFilter() const;

  // Adds without a descriptor.
  Code Add(EngineHandle session, const Filter& filter);

  // The filters of this world's sublayer.
  std::vector<Filter> OwnFilters(EngineHandle session) const;
  bool Has(EngineHandle session, const Guid& key) const;

  Session engine;
  Provider provider;
  Sublayer sublayer;
};

}  // namespace contract

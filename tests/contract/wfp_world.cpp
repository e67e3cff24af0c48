#include "tests/contract/wfp_world.h"

namespace contract {

Session::Session(std::uint32_t flags, std::uint32_t transaction_wait_ms) {
  EXPECT_EQ(OpenEngineSession({L"Contract", flags, transaction_wait_ms}, handle_), kSuccess);
}

void Session::Close() {
  if (handle_ != 0) {
    EXPECT_EQ(CloseEngineSession(handle_), kSuccess);
  }
  handle_ = 0;
}

Guid FreshGuid() {
  Guid guid;
  EXPECT_EQ(NewGuid(guid), kSuccess);
  return guid;
}

WfpWorld::WfpWorld() {
  provider = {FreshGuid(), L"Contract", L"Provider of a case", kProviderPersistent, L""};
  sublayer = {FreshGuid(),         L"Contract",  L"Sublayer of a case",
              kSublayerPersistent, provider.key, 100};
  EXPECT_EQ(AddProvider(engine, provider, {}), kSuccess);
  EXPECT_EQ(AddSublayer(engine, sublayer, {}), kSuccess);
}

WfpWorld::~WfpWorld() {
  Session cleaner;
  for (const Filter& filter : OwnFilters(cleaner)) {
    EXPECT_EQ(DeleteFilter(cleaner, filter.key), kSuccess);
  }
  EXPECT_EQ(DeleteSublayer(cleaner, sublayer.key), kSuccess);
  EXPECT_EQ(DeleteProvider(cleaner, provider.key), kSuccess);
}

Filter WfpWorld::SomeFilter() const {
  Filter filter;
  filter.key = FreshGuid();
  filter.name = L"Contract";
  filter.provider = provider.key;
  filter.layer = kLayerConnectV4;
  filter.sublayer = sublayer.key;
  filter.weight = std::uint8_t{3};
  filter.conditions = {{kFieldRemoteAddress, kMatchEqual, std::uint32_t{0x0A000001}}};
  filter.action = kActionBlock;
  return filter;
}

Code WfpWorld::Add(EngineHandle session, const Filter& filter) {
  std::uint64_t id = 0;
  return AddFilter(session, filter, {}, id);
}

std::vector<Filter> WfpWorld::OwnFilters(EngineHandle session) const {
  constexpr std::uint32_t kBatch = 100;
  std::vector<Filter> own;
  std::vector<Filter> batch;
  EnumHandle enumeration = 0;
  EXPECT_EQ(OpenFilterEnum(session, enumeration), kSuccess);
  do {
    EXPECT_EQ(NextFilters(session, enumeration, kBatch, batch), kSuccess);
    for (const Filter& filter : batch) {
      if (filter.sublayer == sublayer.key) own.push_back(filter);
    }
  } while (batch.size() == kBatch);
  EXPECT_EQ(CloseFilterEnum(session, enumeration), kSuccess);
  return own;
}

bool WfpWorld::Has(EngineHandle session, const Guid& key) const {
  Filter filter;
  return GetFilter(session, key, filter) == kSuccess;
}

}  // namespace contract

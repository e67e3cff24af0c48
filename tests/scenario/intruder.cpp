#include "tests/scenario/intruder.h"

#include "filtering/filter_keys.h"

namespace kestrelon::test {

Intruder::Intruder() {
  EXPECT_EQ(platform::OpenEngineSession({L"intruder", 0, 1000}, session_), platform::kSuccess);
}

Intruder::~Intruder() {
  platform::CloseEngineSession(session_);
}

platform::Filter Intruder::FirstFilter() {
  platform::Filter first;
  for (const auto& filter : simulation::TheMachine().engine.Filters()) {
    if (filter->provider != ProviderKey) continue;
    if ((filter->flags & platform::kFilterBootTime) != 0) continue;
    if (first.key == Guid{} || filter->key < first.key) first = *filter;
  }
  EXPECT_FALSE(first.key == Guid{});
  return first;
}

platform::Filter Intruder::ForeignFilter() {
  platform::Filter foreign;
  foreign.key = MakeGuid("{00000000-1111-2222-3333-444444444444}");
  foreign.name = L"foreign";
  foreign.layer = platform::kLayerConnectV4;
  foreign.sublayer = SubLayerKey;
  foreign.weight = std::uint8_t{15};
  foreign.action = platform::kActionPermit;
  return foreign;
}

void Intruder::Delete(const Guid& key) {
  EXPECT_EQ(platform::DeleteFilter(session_, key), platform::kSuccess);
}

void Intruder::Add(const platform::Filter& filter) {
  std::uint64_t id = 0;
  EXPECT_EQ(platform::AddFilter(session_, filter, {}, id), platform::kSuccess);
}

void Intruder::DeleteEverything(World& world) {
  for (const Guid& key : world.FilterKeys()) Delete(key);
  for (const Guid& key : BootFilterKeys) (void)platform::DeleteFilter(session_, key);
  EXPECT_EQ(platform::DeleteSublayer(session_, SubLayerKey), platform::kSuccess);
}

void Intruder::Demote(World& world) {
  DeleteEverything(world);
  platform::Sublayer sublayer;
  sublayer.key = SubLayerKey;
  sublayer.name = L"Kestrelon";
  sublayer.flags = platform::kSublayerPersistent;
  sublayer.provider = ProviderKey;
  sublayer.weight = 1;
  EXPECT_EQ(platform::AddSublayer(session_, sublayer, {}), platform::kSuccess);
}

}  // namespace kestrelon::test

#include "tests/engine/engine_world.h"

#include "base/text.h"

namespace simulation {
namespace {

void PutNumber(Bytes& bytes, std::size_t value, int size) {
  for (int i = 0; i < size; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

}  // namespace

Guid Key(std::uint8_t number) {
  Guid key;
  key.data1 = 0x1000;
  key.data4[7] = number;
  return key;
}

Bytes DescriptorOf(const std::vector<AccessEntry>& entries) {
  Bytes list;
  for (const AccessEntry& entry : entries) {
    list.push_back(entry.allow ? 0 : 1);
    list.push_back(0);
    PutNumber(list, 8 + entry.sid.size(), 2);
    PutNumber(list, entry.mask, 4);
    list.insert(list.end(), entry.sid.begin(), entry.sid.end());
  }
  constexpr std::size_t kHeader = 20;
  Bytes bytes = {1, 0};
  PutNumber(bytes, 0x9004, 2);
  bytes.resize(bytes.size() + 12);  // neither owner nor group nor audit list
  PutNumber(bytes, kHeader, 4);
  bytes.push_back(2);
  bytes.push_back(0);
  PutNumber(bytes, 8 + list.size(), 2);
  PutNumber(bytes, entries.size(), 4);
  bytes.insert(bytes.end(), list.begin(), list.end());
  return bytes;
}

Value UserCondition(const std::vector<AccessEntry>& entries) {
  return platform::DescriptorValue{DescriptorOf(entries)};
}

Bytes AppId(const std::wstring& path) {
  return kestrelon::Utf16BytesWithNull(path);
}

EngineWorld::EngineWorld() : session(Open(LocalSystemCaller())) {
  platform::Provider provider;
  provider.key = kProvider;
  provider.name = L"Provider";
  provider.flags = platform::kProviderPersistent;
  EXPECT_EQ(engine.AddProvider(session, provider, {}), platform::kSuccess);
  EXPECT_EQ(AddSublayer(kSublayer, platform::kSublayerPersistent, 100), platform::kSuccess);
}

SessionId EngineWorld::Open(const Caller& caller, std::uint32_t flags) {
  SessionId opened = 0;
  EXPECT_EQ(engine.OpenSession({L"Test", flags}, caller, opened), platform::kSuccess);
  return opened;
}

Filter EngineWorld::SomeFilter(std::uint32_t action, Value weight,
                               std::vector<Condition> conditions) const {
  Filter filter;
  filter.name = L"Filter";
  filter.provider = kProvider;
  filter.layer = platform::kLayerConnectV4;
  filter.sublayer = kSublayer;
  filter.weight = std::move(weight);
  filter.conditions = std::move(conditions);
  filter.action = action;
  return filter;
}

Filter EngineWorld::WithKey(std::uint8_t key, std::uint32_t flags) const {
  Filter filter = SomeFilter();
  filter.flags = flags;
  filter.key = Key(key);
  return filter;
}

Code EngineWorld::AddAs(SessionId as, const Filter& filter, const Bytes& descriptor) {
  std::uint64_t id = 0;
  return engine.AddFilter(as, filter, descriptor, id);
}

Code EngineWorld::AddSublayer(const Guid& key, std::uint32_t flags, std::uint16_t weight) {
  platform::Sublayer sublayer;
  sublayer.key = key;
  sublayer.name = L"Sublayer";
  sublayer.flags = flags;
  sublayer.provider = kProvider;
  sublayer.weight = weight;
  return engine.AddSublayer(session, sublayer, {});
}

void EngineWorld::Clear() {
  for (const auto& filter : engine.Filters()) {
    EXPECT_EQ(engine.DeleteFilter(session, filter->key), platform::kSuccess);
  }
}

bool EngineWorld::Has(const Guid& key) {
  for (const auto& filter : engine.Filters()) {
    if (filter->key == key) return true;
  }
  return false;
}

}  // namespace simulation

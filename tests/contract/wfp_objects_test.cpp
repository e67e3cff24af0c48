// The filtering engine: what it takes and refuses, what it gives back, who may touch it.
#include <tuple>

#include "tests/contract/wfp_world.h"

namespace contract {
namespace {

using WfpObjects = WfpWorld;

// Every kind of value the product writes, on the fields that take them.
std::vector<Condition> ConditionsOfEachKind() {
  SecurityDescriptor descriptor;
  EXPECT_EQ(DescriptorFromText(L"O:LSD:(A;;CC;;;S-1-5-18)", descriptor), kSuccess);
  Sid package;
  EXPECT_EQ(SidFromText(L"S-1-15-2-1", package), kSuccess);
  const ByteBlob app_id = {{0x5C, 0, 0x64, 0, 0x5C, 0, 0x61, 0, 0, 0}};
  return {
      {kFieldAppId, kMatchEqual, app_id},
      {kFieldPackageId, kMatchEqual, SidValue{package}},
      {kFieldUserId, kMatchEqual, DescriptorValue{descriptor}},
      {kFieldProtocol, kMatchEqual, std::uint8_t{6}},
      {kFieldRemotePort, kMatchEqual, std::uint16_t{443}},
      {kFieldRemotePort, kMatchRange, ValueRange{std::uint16_t{80}, std::uint16_t{90}}},
      {kFieldFlags, kMatchFlagsAllSet, kConditionFlagLoopback},
  };
}

auto Fields(const Filter& f) {
  return std::tie(f.key, f.name, f.description, f.flags, f.provider, f.layer, f.sublayer, f.weight,
                  f.conditions, f.action);
}

auto Fields(const Sublayer& s) {
  return std::tie(s.key, s.name, s.description, s.flags, s.provider, s.weight);
}

TEST_F(WfpObjects, FilterComesBackAsItWasWritten) {
  Filter v4 = SomeFilter();
  v4.description = L"All there is \u00e9";
  v4.flags = kFilterPersistent | kFilterClearActionRight | kFilterIndexed;
  v4.weight = std::uint64_t{0x123456789ABCDEF0};
  v4.action = kActionPermit;
  v4.conditions = ConditionsOfEachKind();
  v4.conditions.push_back({kFieldRemoteAddress, kMatchEqual, Ipv4Mask{0x0A000000, 0xFF000000}});
  v4.conditions.push_back({kFieldRemoteAddress, kMatchRange,
                           ValueRange{std::uint32_t{0x0A000001}, std::uint32_t{0x0A000009}}});
  Filter v6 = SomeFilter();
  v6.layer = kLayerRecvAcceptV6;
  v6.provider = std::nullopt;
  v6.weight = std::uint8_t{15};
  const ByteArray16 low = {0xFE, 0x80};
  const ByteArray16 high = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9};
  v6.conditions = {{kFieldRemoteAddress, kMatchEqual, low},
                   {kFieldRemoteAddress, kMatchEqual, Ipv6Mask{low, 64}},
                   {kFieldRemoteAddress, kMatchRange, ValueRange{low, high}}};
  Filter bare = SomeFilter();
  bare.weight = std::monostate();
  bare.conditions.clear();
  Filter long_one = SomeFilter();
  for (std::uint32_t i = 0; i < 3000; ++i) {
    long_one.conditions.push_back(
        {kFieldRemoteAddress, kMatchRange, ValueRange{i * 1000, i * 1000 + 9}});
  }
  for (const Filter& written : {v4, v6, bare, long_one}) {
    std::uint64_t id = 0;
    ASSERT_EQ(AddFilter(engine, written, {}, id), kSuccess);
    const std::vector<Filter> listed = OwnFilters(engine);
    ASSERT_EQ(listed.size(), 1u);
    Filter got;
    ASSERT_EQ(GetFilter(engine, written.key, got), kSuccess);
    for (const Filter& read : {listed[0], got}) {
      EXPECT_EQ(read.id, id);
      EXPECT_EQ(Fields(read), Fields(written));
    }
    ASSERT_EQ(DeleteFilter(engine, written.key), kSuccess);
  }
}

TEST_F(WfpObjects, SublayerComesBackAsItWasWritten) {
  Sublayer bare;
  bare.key = FreshGuid();
  bare.name = L"Contract";
  bare.weight = 7;
  ASSERT_EQ(AddSublayer(engine, bare, {}), kSuccess);
  for (const Sublayer& written : {sublayer, bare}) {
    Sublayer read;
    ASSERT_EQ(GetSublayer(engine, written.key, read), kSuccess);
    EXPECT_EQ(Fields(read), Fields(written));
  }
  // What persists does not stand on what passes.
  Filter filter = SomeFilter();
  filter.sublayer = bare.key;
  filter.flags = kFilterPersistent;
  EXPECT_EQ(Add(engine, filter), kLifetimeMismatch);
  EXPECT_EQ(DeleteSublayer(engine, bare.key), kSuccess);
}

// One mistake each in a filter that would be taken otherwise.
TEST_F(WfpObjects, FilterIsRefusedByTheCodeOfItsMistake) {
  const std::pair<Code, void (*)(Filter&)> cases[] = {
      {kNullDisplayName, [](Filter& f) { f.name.clear(); }},
      {kLayerNotFound, [](Filter& f) { f.layer = FreshGuid(); }},
      {kSublayerNotFound, [](Filter& f) { f.sublayer = FreshGuid(); }},
      {kProviderNotFound, [](Filter& f) { f.provider = FreshGuid(); }},
      {kConditionNotFound, [](Filter& f) { f.conditions[0].field = FreshGuid(); }},
      {kTypeMismatch, [](Filter& f) { f.conditions[0].value = std::uint16_t{80}; }},
      {kTypeMismatch, [](Filter& f) { f.conditions[0].value.emplace<Ipv6Mask>(); }},
      {kMatchTypeMismatch, [](Filter& f) { f.conditions[0].match = kMatchEqualIgnoringCase; }},
      {kInvalidRange,
       [](Filter& f) {
         f.conditions[0].match = kMatchRange;
         f.conditions[0].value = ValueRange{std::uint32_t{9}, std::uint32_t{1}};
       }},
      {kInvalidEnumerator, [](Filter& f) { f.conditions[0].match = 99; }},
      {kInvalidActionType, [](Filter& f) { f.action = 0x1234; }},
      {kInvalidWeight, [](Filter& f) { f.weight = std::uint8_t{16}; }},
      {kInvalidFlags, [](Filter& f) { f.flags = kFilterPersistent | kFilterBootTime; }},
      {kNullPointer,
       [](Filter& f) {
         f.conditions = {{kFieldPackageId, kMatchEqual, SidValue{}}};
       }},
  };
  for (const auto& [code, spoil] : cases) {
    Filter filter = SomeFilter();
    spoil(filter);
    std::uint64_t id = 7;
    EXPECT_EQ(AddFilter(engine, filter, {}, id), code);
    EXPECT_EQ(id, 7u);
  }
  EXPECT_TRUE(OwnFilters(engine).empty());
}

TEST_F(WfpObjects, KeyIsTakenOnceAndAUsedObjectStays) {
  const Filter filter = SomeFilter();
  ASSERT_EQ(Add(engine, filter), kSuccess);
  EXPECT_EQ(Add(engine, filter), kObjectExists);
  EXPECT_EQ(AddProvider(engine, provider, {}), kObjectExists);
  EXPECT_EQ(AddSublayer(engine, sublayer, {}), kObjectExists);
  EXPECT_EQ(DeleteSublayer(engine, sublayer.key), kInUse);
  EXPECT_EQ(DeleteProvider(engine, provider.key), kInUse);
}

TEST_F(WfpObjects, MissingObjectIsToldByItsKind) {
  EXPECT_EQ(DeleteFilter(engine, FreshGuid()), kFilterNotFound);
  EXPECT_EQ(DeleteSublayer(engine, FreshGuid()), kSublayerNotFound);
  EXPECT_EQ(DeleteProvider(engine, FreshGuid()), kProviderNotFound);
  EXPECT_EQ(SetFilterDacl(engine, FreshGuid(), {}), kFilterNotFound);
  Filter filter = SomeFilter();
  EXPECT_EQ(GetFilter(engine, FreshGuid(), filter), kFilterNotFound);
  EXPECT_EQ(filter.name, L"Contract");
  Sublayer kept = sublayer;
  EXPECT_EQ(GetSublayer(engine, FreshGuid(), kept), kSublayerNotFound);
  EXPECT_EQ(kept.key, sublayer.key);
}

TEST_F(WfpObjects, DescriptorRefusesDeletionUntilItIsReplaced) {
  // Everybody who runs this may look, and change the access list, but not delete.
  SecurityDescriptor locked;
  SecurityDescriptor open;
  ASSERT_EQ(DescriptorFromText(L"D:P(A;;0x603f4;;;SY)(A;;0x603f4;;;BA)", locked), kSuccess);
  ASSERT_EQ(DescriptorFromText(L"D:P(A;;0xf07ff;;;SY)(A;;0xf07ff;;;BA)", open), kSuccess);
  const Filter filter = SomeFilter();
  std::uint64_t id = 0;
  ASSERT_EQ(AddFilter(engine, filter, locked, id), kSuccess);
  EXPECT_EQ(DeleteFilter(engine, filter.key), kAccessDenied);
  EXPECT_TRUE(Has(engine, filter.key));
  ASSERT_EQ(SetFilterDacl(engine, filter.key, open), kSuccess);
  EXPECT_EQ(DeleteFilter(engine, filter.key), kSuccess);

  // A locked sublayer takes no new filter either.
  ASSERT_EQ(SetSublayerDacl(engine, sublayer.key, locked), kSuccess);
  EXPECT_EQ(Add(engine, SomeFilter()), kAccessDenied);
  EXPECT_EQ(DeleteSublayer(engine, sublayer.key), kAccessDenied);
  ASSERT_EQ(SetSublayerDacl(engine, sublayer.key, open), kSuccess);
  ASSERT_EQ(SetProviderDacl(engine, provider.key, locked), kSuccess);
  EXPECT_EQ(Add(engine, SomeFilter()), kAccessDenied);
  // An empty descriptor sets the null list, which refuses nothing.
  ASSERT_EQ(SetProviderDacl(engine, provider.key, {}), kSuccess);
  EXPECT_EQ(Add(engine, SomeFilter()), kSuccess);
}

}  // namespace
}  // namespace contract

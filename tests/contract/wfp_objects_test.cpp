// The filtering engine: what it takes and refuses, what it gives back, who may touch it.
#include "platform/files.h"
#include "tests/contract/scratch.h"
#include "tests/contract/wfp_world.h"

namespace contract {
namespace {

using WfpObjects = WfpWorld;
using WfpAppId = testing::Test;

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

void ExpectSame(const Filter& read, const Filter& written) {
  EXPECT_EQ(read.key, written.key);
  EXPECT_EQ(read.name, written.name);
  EXPECT_EQ(read.description, written.description);
  EXPECT_EQ(read.flags, written.flags);
  EXPECT_EQ(read.provider, written.provider);
  EXPECT_EQ(read.layer, written.layer);
  EXPECT_EQ(read.sublayer, written.sublayer);
  EXPECT_EQ(read.weight, written.weight);
  EXPECT_EQ(read.action, written.action);
  ASSERT_EQ(read.conditions.size(), written.conditions.size());
  for (std::size_t i = 0; i < read.conditions.size(); ++i) {
    EXPECT_EQ(read.conditions[i], written.conditions[i]) << "condition " << i;
  }
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
  for (const Filter& written : {v4, v6, bare}) {
    std::uint64_t id = 0;
    ASSERT_EQ(AddFilter(engine, written, {}, id), kSuccess);
    bool found = false;
    for (const Filter& read : OwnFilters(engine)) {
      if (read.key != written.key) continue;
      found = true;
      EXPECT_EQ(read.id, id);
      ExpectSame(read, written);
    }
    EXPECT_TRUE(found);
    Filter read;
    ASSERT_EQ(GetFilter(engine, written.key, read), kSuccess);
    EXPECT_EQ(read.id, id);
    ExpectSame(read, written);
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
    EXPECT_EQ(read.key, written.key);
    EXPECT_EQ(read.name, written.name);
    EXPECT_EQ(read.description, written.description);
    EXPECT_EQ(read.flags, written.flags);
    EXPECT_EQ(read.provider, written.provider);
    EXPECT_EQ(read.weight, written.weight);
  }
  EXPECT_EQ(DeleteSublayer(engine, bare.key), kSuccess);
}

TEST_F(WfpObjects, FilterMayHaveThousandsOfConditions) {
  Filter written = SomeFilter();
  written.conditions.clear();
  for (std::uint32_t i = 0; i < 3000; ++i) {
    written.conditions.push_back(
        {kFieldRemoteAddress, kMatchRange, ValueRange{i * 1000, i * 1000 + 9}});
  }
  ASSERT_EQ(Add(engine, written), kSuccess);
  const std::vector<Filter> read = OwnFilters(engine);
  ASSERT_EQ(read.size(), 1u);
  ExpectSame(read[0], written);
}

TEST_F(WfpObjects, FilterWithoutAKeyGetsOne) {
  Filter filter = SomeFilter();
  filter.key = Guid();
  ASSERT_EQ(Add(engine, filter), kSuccess);
  ASSERT_EQ(OwnFilters(engine).size(), 1u);
  EXPECT_NE(OwnFilters(engine)[0].key, Guid());
}

// One mistake each in a filter that would be taken otherwise.
TEST_F(WfpObjects, FilterIsRefusedByTheCodeOfItsMistake) {
  struct Case {
    Code code;
    void (*spoil)(Filter&);
  };
  const Case cases[] = {
      {kNullDisplayName, [](Filter& f) { f.name.clear(); }},
      {kLayerNotFound, [](Filter& f) { f.layer = FreshGuid(); }},
      {kSublayerNotFound, [](Filter& f) { f.sublayer = FreshGuid(); }},
      {kProviderNotFound, [](Filter& f) { f.provider = FreshGuid(); }},
      {kConditionNotFound, [](Filter& f) { f.conditions[0].field = FreshGuid(); }},
      {kTypeMismatch, [](Filter& f) { f.conditions[0].value = std::uint16_t{80}; }},
      {kTypeMismatch,
       [](Filter& f) {
         f.conditions[0].value = Ipv6Mask{{}, 64};
       }},
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
         f.conditions[0] = {kFieldPackageId, kMatchEqual, SidValue{}};
       }},
  };
  for (const Case& c : cases) {
    Filter filter = SomeFilter();
    c.spoil(filter);
    std::uint64_t id = 7;
    EXPECT_EQ(AddFilter(engine, filter, {}, id), c.code) << "case " << &c - cases;
    EXPECT_EQ(id, 7u);
  }
  EXPECT_TRUE(OwnFilters(engine).empty());
}

TEST_F(WfpObjects, KeyIsTakenOnce) {
  const Filter filter = SomeFilter();
  ASSERT_EQ(Add(engine, filter), kSuccess);
  EXPECT_EQ(Add(engine, filter), kObjectExists);
  EXPECT_EQ(AddProvider(engine, provider, {}), kObjectExists);
  EXPECT_EQ(AddSublayer(engine, sublayer, {}), kObjectExists);
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

TEST_F(WfpObjects, UsedObjectCanNotBeDeleted) {
  ASSERT_EQ(Add(engine, SomeFilter()), kSuccess);
  EXPECT_EQ(DeleteSublayer(engine, sublayer.key), kInUse);
  EXPECT_EQ(DeleteProvider(engine, provider.key), kInUse);
}

TEST_F(WfpObjects, PersistentFilterNeedsAPersistentSublayer) {
  Sublayer passing = sublayer;
  passing.key = FreshGuid();
  passing.flags = 0;
  ASSERT_EQ(AddSublayer(engine, passing, {}), kSuccess);
  Filter filter = SomeFilter();
  filter.sublayer = passing.key;
  filter.flags = kFilterPersistent;
  EXPECT_EQ(Add(engine, filter), kLifetimeMismatch);
  EXPECT_EQ(DeleteSublayer(engine, passing.key), kSuccess);
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

TEST_F(WfpAppId, IsTheDevicePathInLowerCaseWithANull) {
  const std::wstring directory = FreshDirectory();
  WriteWhole(directory + L"\\Program.EXE", "");
  kestrelon::platform::Bytes app_id;
  ASSERT_EQ(AppIdOfFile(directory + L"\\Program.EXE", app_id), kSuccess);
  ASSERT_GE(app_id.size(), 2u);
  std::wstring text;
  for (std::size_t i = 0; i + 1 < app_id.size(); i += 2) {
    text += static_cast<wchar_t>(app_id[i] | app_id[i + 1] << 8);
  }
  EXPECT_EQ(text.substr(0, 8), L"\\device\\");
  EXPECT_EQ(text.substr(text.size() - 13), std::wstring(L"\\program.exe\0", 13));
  kestrelon::platform::Bytes kept = {7};
  EXPECT_NE(AppIdOfFile(directory + L"\\none.exe", kept), kSuccess);
  EXPECT_EQ(kept, kestrelon::platform::Bytes{7});
}

}  // namespace
}  // namespace contract

// The swap of the whole set, and what is kept of it.

#include "filtering/apply_filters.h"

#include <set>

#include "base/text.h"
#include "core/core_state.h"
#include "filtering/filter_keys.h"
#include "filtering/read_filters.h"
#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

class ApplyingFilters : public FilterWorld {
 protected:
  ~ApplyingFilters() override { platform::CloseEngineSession(other_); }

  // Adds it by a session of somebody else's, locked by nobody.
  Guid Add(const platform::Filter& filter) {
    if (other_ == 0) {
      EXPECT_EQ(platform::OpenEngineSession({}, other_), platform::kSuccess);
    }
    std::uint64_t id = 0;
    EXPECT_EQ(platform::AddFilter(other_, filter, {}, id), platform::kSuccess);
    return filter.key;
  }

  std::vector<Guid> ReadKeys(FilterRecordTable* signatures = nullptr) {
    GuardLock lock(TheEngine.EngineGuard);
    std::vector<Guid> keys;
    EXPECT_TRUE(ReadFilters(TheEngine, keys, error_, signatures)) << Utf8FromWide(error_);
    return keys;
  }

 private:
  platform::EngineHandle other_ = 0;
};

TEST_F(ApplyingFilters, EachRefusalIsToldByTheCallThatMetIt) {
  const wchar_t* const adding = L"FwpmFilterAdd0 (Kestrelon - Block all outbound): ";
  const std::pair<const char*, const wchar_t*> cases[] = {
      {"AddProvider", L"FwpmProviderAdd0: "},
      {"AddSublayer", L"FwpmSubLayerAdd0: "},
      {"OpenFilterEnum", L"FwpmFilterCreateEnumHandle0: "},
      {"NextFilters", L"FwpmFilterEnum0: "},
      {"BeginTransaction", L"FwpmTransactionBegin0: "},
      {"DeleteFilter", L"FwpmFilterDeleteByKey0: "},
      {"NewGuid", adding},
      {"AddFilter", adding},
      {"CommitTransaction", L"FwpmTransactionCommit0: "},
  };
  Install({}, {});
  Core.ChangedFilePending = true;
  for (const auto& [call, sentence] : cases) {
    machine_.faults.FailOnce(call, platform::kTransactionTimeout);
    EXPECT_FALSE(Apply({}, {})) << call;
    EXPECT_TRUE(error_.starts_with(std::wstring(sentence) + L"0x80320012"))
        << call << ": " << Utf8FromWide(error_);
    EXPECT_TRUE(Core.ChangedFilePending) << call;
    ExpectRecordFits();
  }
  // A filter that somebody deleted meanwhile is no failure.
  machine_.faults.FailOnce("DeleteFilter", platform::kFilterNotFound);
  EXPECT_TRUE(Apply({}, {})) << Utf8FromWide(error_);
  EXPECT_FALSE(Core.ChangedFilePending);
  // What can't be read back once it is in force is told, but stays.
  machine_.faults.FailNthOf("OpenFilterEnum", 2, platform::kTransactionTimeout);
  EXPECT_TRUE(Apply({}, {}));
  ASSERT_EQ(warnings_.size(), 1u);
  EXPECT_TRUE(warnings_[0].starts_with(
      L"Cannot record the applied filters for integrity checks: FwpmFilterCreateEnumHandle0: "));
  CloseEngine(TheEngine);
  EXPECT_FALSE(Apply({}, {}));
  EXPECT_EQ(error_, L"WFP engine is not open");
}

TEST_F(ApplyingFilters, ReadsEveryBatchToItsEnd) {
  std::size_t added = 0;
  for (const std::size_t count : {0u, 1u, 511u, 512u, 513u, 1024u, 1025u}) {
    for (; added < count; ++added) Add(ForeignFilter(ProviderKey, SubLayerKey));
    FilterRecordTable signatures;
    EXPECT_EQ(ReadKeys(&signatures).size(), count);
    EXPECT_EQ(signatures.size(), count);
  }
}

// Only what is ours by provider or sublayer is replaced, boot-time filters never.
TEST_F(ApplyingFilters, WhatOthersPutIntoTheSublayerGoesAndTheRestStays) {
  platform::Filter mere = ForeignFilter(std::nullopt, SubLayerKey);
  mere.flags = 0;  // without the provider none can be persistent in the provider's sublayer
  platform::Filter boot = ForeignFilter(ProviderKey, SubLayerKey);
  boot.flags = platform::kFilterBootTime;
  platform::Filter boot_key = ForeignFilter(ProviderKey, SubLayerKey);
  boot_key.key = BootFilterKeys[7];
  const std::set<Guid> ours = {Add(mere), Add(ForeignFilter(ProviderKey, SubLayerKey)),
                               Add(ForeignFilter(ProviderKey, Guid{}))};
  const std::set<Guid> others = {Add(boot), Add(boot_key),
                                 Add(ForeignFilter(std::nullopt, Guid{}))};
  const std::vector<Guid> keys = ReadKeys();
  EXPECT_EQ(std::set<Guid>(keys.begin(), keys.end()), ours);
  Install({}, {});
  std::set<Guid> present;
  for (const auto& filter : machine_.engine.Filters()) present.insert(filter->key);
  for (const Guid& key : ours) EXPECT_FALSE(present.contains(key));
  for (const Guid& key : others) EXPECT_TRUE(present.contains(key));
}

// --console under an administrator, while an earlier run as LocalSystem has locked the objects:
// the platform asks for a right to link to the sublayer that only SYSTEM has.
TEST_F(ApplyingFilters, AnAdministratorCantFillALockedSublayer) {
  const Guid old = Add(ForeignFilter(ProviderKey, SubLayerKey));
  CloseEngine(TheEngine);
  machine_.token.local_system = false;
  ASSERT_TRUE(OpenEngine(TheEngine, error_)) << Utf8FromWide(error_);
  EXPECT_FALSE(Apply({}, {}));
  EXPECT_TRUE(error_.starts_with(L"FwpmFilterAdd0 (Kestrelon - Block all outbound): 0x00000005"))
      << Utf8FromWide(error_);
  EXPECT_EQ(ReadKeys(), std::vector<Guid>{old});
}

}  // namespace
}  // namespace kestrelon

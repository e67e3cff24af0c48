// The swap of the whole set, and what is kept of it.

#include "filtering/apply_filters.h"

#include "base/text.h"
#include "core/core_state.h"
#include "filtering/filter_keys.h"
#include "filtering/lock_descriptors.h"
#include "filtering/read_filters.h"
#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

class ApplyingFilters : public FilterWorld {
 protected:
  ~ApplyingFilters() override { platform::CloseEngineSession(other_); }

  // A filter that somebody else adds, locked by nobody. One without the provider can't be
  // persistent in the sublayer of the provider's.
  Guid AddForeign(const std::optional<Guid>& provider, const Guid& sublayer,
                  std::uint32_t flags = platform::kFilterPersistent, Guid key = {}) {
    if (other_ == 0) {
      EXPECT_EQ(platform::OpenEngineSession({}, other_), platform::kSuccess);
    }
    platform::Filter filter;
    if (key == Guid{}) {
      EXPECT_EQ(platform::NewGuid(key), platform::kSuccess);
    }
    filter.key = key;
    filter.name = L"foreign";
    filter.flags = flags;
    filter.provider = provider;
    filter.layer = platform::kLayerConnectV4;
    filter.sublayer = sublayer;
    filter.weight = std::uint8_t{0};
    std::uint64_t id = 0;
    EXPECT_EQ(platform::AddFilter(other_, filter, {}, id), platform::kSuccess);
    return key;
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

TEST_F(ApplyingFilters, RecordAndTagsStandForWhatIsInstalled) {
  Install({Rule(true, L"192.0.2.0/24")}, {AllowedApp(true)});
  ExpectRecordFits();
  const auto before = machine_.engine.Filters();
  Install({Rule(false)}, {HeldApp()});
  ExpectRecordFits();
  for (const auto& old : before) {
    for (const auto& now : machine_.engine.Filters()) EXPECT_NE(old->key, now->key);
  }
}

TEST_F(ApplyingFilters, AFailureAnywhereLeavesOneWholeSet) {
  RuleEntry old_rule = Rule(true, L"192.0.2.1");
  old_rule.name = L"old";
  Install({Rule(false, L"192.0.2.2")}, {AllowedApp(true)});
  const std::multiset<std::wstring> new_names = InstalledNames();
  Install({old_rule}, {});
  const std::multiset<std::wstring> old_names = InstalledNames();
  Config next;
  next.rules = {Rule(false, L"192.0.2.2")};
  int failures = 0;
  for (std::uint64_t n = 1;; ++n) {
    Install({old_rule}, {});
    Core.ChangedFilePending = true;
    machine_.faults.FailNth(n, platform::kAccessDenied);
    const bool applied = Apply(next, {AllowedApp(true)});
    const bool fired = machine_.faults.fired();
    SCOPED_TRACE(machine_.faults.fired_name());
    machine_.faults.Clear();
    EXPECT_FALSE(machine_.engine.transaction_open());
    EXPECT_EQ(InstalledNames(), applied ? new_names : old_names);
    EXPECT_EQ(Core.ChangedFilePending, !applied);
    if (applied && !warnings_.empty()) {
      EXPECT_EQ(warnings_.size(), 1u);
      EXPECT_TRUE(warnings_[0].starts_with(
          L"Cannot record the applied filters for integrity checks: Fwpm"));
    } else {
      ExpectRecordFits();
    }
    if (!fired) break;
    if (!applied) ++failures;
  }
  EXPECT_GT(failures, 10);
}

TEST_F(ApplyingFilters, EachRefusalIsToldByTheCallThatMetIt) {
  struct Case {
    const char* call;
    const wchar_t* sentence;
  };
  const Case cases[] = {
      {"AddProvider", L"FwpmProviderAdd0: "},
      {"AddSublayer", L"FwpmSubLayerAdd0: "},
      {"OpenFilterEnum", L"FwpmFilterCreateEnumHandle0: "},
      {"NextFilters", L"FwpmFilterEnum0: "},
      {"BeginTransaction", L"FwpmTransactionBegin0: "},
      {"DeleteFilter", L"FwpmFilterDeleteByKey0: "},
      {"NewGuid", L"FwpmFilterAdd0 (Kestrelon - Block all outbound): "},
      {"AddFilter", L"FwpmFilterAdd0 (Kestrelon - Block all outbound): "},
      {"CommitTransaction", L"FwpmTransactionCommit0: "},
  };
  Install({}, {});
  for (const Case& c : cases) {
    machine_.faults.FailOnce(c.call, platform::kTransactionTimeout);
    EXPECT_FALSE(Apply({}, {})) << c.call;
    EXPECT_TRUE(error_.starts_with(std::wstring(c.sentence) + L"0x80320012"))
        << c.call << ": " << Utf8FromWide(error_);
  }
  CloseEngine(TheEngine);
  EXPECT_FALSE(Apply({}, {}));
  EXPECT_EQ(error_, L"WFP engine is not open");
}

TEST_F(ApplyingFilters, AFilterThatSomebodyDeletedMeanwhileIsNoFailure) {
  Install({}, {});
  machine_.faults.FailOnce("DeleteFilter", platform::kFilterNotFound);
  EXPECT_TRUE(Apply({}, {})) << Utf8FromWide(error_);
}

TEST_F(ApplyingFilters, ReadsEveryBatchToItsEnd) {
  std::size_t added = 0;
  for (const std::size_t count : {0u, 1u, 511u, 512u, 513u, 1024u, 1025u}) {
    for (; added < count; ++added) AddForeign(ProviderKey, SubLayerKey);
    FilterRecordTable signatures;
    EXPECT_EQ(ReadKeys(&signatures).size(), count);
    EXPECT_EQ(signatures.size(), count);
  }
}

TEST_F(ApplyingFilters, ReadsWhatNamesProviderOrSublayerButNoBootTimeFilter) {
  std::set<Guid> ours = {AddForeign(ProviderKey, SubLayerKey),
                         AddForeign(std::nullopt, SubLayerKey, 0), AddForeign(ProviderKey, Guid{})};
  AddForeign(std::nullopt, Guid{});
  AddForeign(ProviderKey, SubLayerKey, platform::kFilterBootTime);
  AddForeign(ProviderKey, SubLayerKey, platform::kFilterPersistent, BootFilterKeys[7]);
  const std::vector<Guid> keys = ReadKeys();
  EXPECT_EQ(std::set<Guid>(keys.begin(), keys.end()), ours);
}

TEST_F(ApplyingFilters, WhatOthersPutIntoTheSublayerGoesAndTheRestStays) {
  const Guid intruder = AddForeign(std::nullopt, SubLayerKey, 0);
  const Guid boot = AddForeign(ProviderKey, SubLayerKey, platform::kFilterBootTime);
  const Guid neighbour = AddForeign(std::nullopt, Guid{});
  Install({}, {});
  std::set<Guid> present;
  for (const auto& filter : machine_.engine.Filters()) present.insert(filter->key);
  EXPECT_FALSE(present.contains(intruder));
  EXPECT_TRUE(present.contains(boot));
  EXPECT_TRUE(present.contains(neighbour));
}

// --console under an administrator, while an earlier run as LocalSystem has locked the objects:
// the platform asks for a right to link to the sublayer that only SYSTEM has.
TEST_F(ApplyingFilters, AnAdministratorCantFillALockedSublayer) {
  const Guid old = AddForeign(ProviderKey, SubLayerKey);
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

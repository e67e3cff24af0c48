#include "filtering/remove_filters.h"

#include "base/text.h"
#include "filtering/add_filters.h"
#include "filtering/boot_filters.h"
#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

class Removal : public FilterWorld {
 protected:
  // Filters as an earlier run as SYSTEM left them, locked, and the boot-time ones. An application
  // would do, but would also keep for the whole process that it is SYSTEM.
  void LeaveFilters() {
    {
      GuardLock lock(TheEngine.EngineGuard);
      std::vector<Guid> keys;
      FilterTagTable tags;
      AddContext context{TheEngine.handle, keys, tags, error_};
      FilterGroup group;
      group.name = L"left";
      const FilterSink sink = AddingSink(context);
      ASSERT_TRUE(FilterWriter(sink).Write(group, {})) << Utf8FromWide(error_);
    }
    ASSERT_TRUE(InstallBootFilters(TheEngine, true, true, error_)) << Utf8FromWide(error_);
    CloseEngine(TheEngine);
  }
};

TEST_F(Removal, AnAdministratorOpensTheLocksAndRemovesEverything) {
  LeaveFilters();
  machine_.token.local_system = false;
  platform::EngineHandle engine = 0;
  ASSERT_EQ(platform::OpenEngineSession({}, engine), platform::kSuccess);
  for (const auto& filter : machine_.engine.Filters()) {
    if ((filter->flags & platform::kFilterBootTime) != 0) continue;
    EXPECT_EQ(platform::DeleteFilter(engine, filter->key), platform::kAccessDenied);
  }
  platform::CloseEngineSession(engine);
  machine_.faults.FailAlways("DeleteSublayer", platform::kAccessDenied);
  EXPECT_TRUE(RemoveAllFilters(false, error_)) << Utf8FromWide(error_);
  EXPECT_TRUE(machine_.engine.Filters().empty());
  EXPECT_FALSE(machine_.faults.fired()) << "filters alone were asked for";
  machine_.faults.Clear();
  EXPECT_TRUE(RemoveAllFilters(true, error_)) << Utf8FromWide(error_);
}

TEST_F(Removal, AFailureLeavesEverythingAndIsToldByItsCall) {
  LeaveFilters();
  const std::size_t left = machine_.engine.Filters().size();
  const std::pair<const char*, const wchar_t*> cases[] = {
      {"OpenEngineSession", L"FwpmEngineOpen0: "},
      {"OpenFilterEnum", L"FwpmFilterCreateEnumHandle0: "},
      {"BeginTransaction", L"FwpmTransactionBegin0: "},
      {"DeleteFilter", L"FwpmFilterDeleteByKey0: "},
      {"DeleteSublayer", L"FwpmSubLayerDeleteByKey0: "},
      {"DeleteProvider", L"FwpmProviderDeleteByKey0: "},
      {"CommitTransaction", L"FwpmTransactionCommit0: "},
  };
  for (const auto& [call, sentence] : cases) {
    SCOPED_TRACE(call);
    machine_.faults.FailOnce(call, platform::kAccessDenied);
    EXPECT_FALSE(RemoveAllFilters(true, error_));
    EXPECT_TRUE(error_.starts_with(std::wstring(sentence) + L"0x00000005")) << Utf8FromWide(error_);
    EXPECT_EQ(machine_.engine.Filters().size(), left);
    EXPECT_FALSE(machine_.engine.transaction_open());
    EXPECT_EQ(machine_.engine.open_sessions(), 0u);
  }
}

}  // namespace
}  // namespace kestrelon

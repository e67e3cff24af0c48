#include "filtering/changed_files.h"

#include <string>

#include "core/core_state.h"
#include "identity/file_usn.h"
#include "identity/pinned_files.h"
#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

constexpr const wchar_t* kDirectory = L"c:\\app";

class ChangedFiles : public FilterWorld {
 protected:
  // Two applications that are permitted by their hash alone, in force.
  void SetUp() override {
    PlanEntry app = AllowedApp(true);
    app.hash_pinned = true;
    app.usn = FileUsn(kApp);
    PlanEntry other = app;
    other.path = kOtherApp;
    other.usn = FileUsn(kOtherApp);
    entries_ = {app, other};
    Install({}, entries_);
    SnapshotPinned(entries_);
    installed_ = machine_.engine.Filters().size();
  }

  std::size_t AddedFilters() const { return machine_.engine.Filters().size() - installed_; }

  std::vector<PlanEntry> entries_;
  std::size_t installed_ = 0;
};

TEST_F(ChangedFiles, TwoChangesMakeOneTransactionOfEightFilters) {
  machine_.files.Write(kApp, "changed");
  machine_.files.Touch(kOtherApp);
  machine_.faults.FailNthOf("BeginTransaction", 2, platform::kAccessDenied);
  BlockChangedFiles(kDirectory);
  machine_.faults.Clear();
  EXPECT_EQ(AddedFilters(), 8u);
  EXPECT_TRUE(Core.ChangedFilePending);
  EXPECT_EQ(Core.ChangedFilesBlocked, 2u);
  EXPECT_EQ(LogCount(" - blocked until it is verified again"), 2u);
  ExpectRecordFits();
  BlockChangedFiles(kDirectory);  // the same change is told once
  EXPECT_EQ(AddedFilters(), 8u);
  Install({}, entries_);
  EXPECT_FALSE(Core.ChangedFilePending);
}

TEST_F(ChangedFiles, NothingIsDoneWithoutAChangedNumber) {
  machine_.faults.FailAlways("BeginTransaction", platform::kAccessDenied);
  BlockChangedFiles(kDirectory);
  machine_.files.Write(kApp, "changed");
  BlockChangedFiles(L"c:\\elsewhere");
  machine_.files.SetUsnSupported(false);
  for (PlanEntry& entry : entries_) entry.usn = FileUsn(entry.path);
  SnapshotPinned(entries_);
  machine_.files.Write(kApp, "changed again");
  BlockChangedFiles(kDirectory);
  machine_.files.SetUsnSupported(true);
  Core.Stopping = true;
  BlockChangedFiles(kDirectory);
  EXPECT_FALSE(machine_.faults.fired());
  EXPECT_FALSE(Core.ChangedFilePending);
}

TEST_F(ChangedFiles, AFailureIsLoggedAndTheNextNotificationTriesAgain) {
  machine_.files.Write(kApp, "changed");
  const std::pair<const char*, const char*> cases[] = {
      {"BeginTransaction", "FwpmTransactionBegin0: 0x00000005"},
      {"AddFilter", "FwpmFilterAdd0 (Kestrelon - Integrity block (file changed)): 0x00000005"},
      {"CommitTransaction", "FwpmTransactionCommit0: 0x00000005"},
  };
  for (const auto& [call, sentence] : cases) {
    machine_.faults.FailOnce(call, platform::kAccessDenied);
    BlockChangedFiles(kDirectory);
    EXPECT_EQ(LogCount(std::string("Blocking a changed file failed: ") + sentence), 1u) << call;
    EXPECT_EQ(AddedFilters(), 0u);
    EXPECT_FALSE(machine_.engine.transaction_open());
    EXPECT_FALSE(Core.ChangedFilePending);
    ExpectRecordFits();
  }
  BlockChangedFiles(kDirectory);
  EXPECT_EQ(AddedFilters(), 4u);
  EXPECT_EQ(Core.ChangedFilesBlocked, 1u);
}

TEST_F(ChangedFiles, FiltersThatCantBeReadBackStandUnrecorded) {
  const std::size_t recorded = FilterCount(TheEngine);
  machine_.files.Write(kApp, "changed");
  machine_.faults.FailOnce("OpenFilterEnum", platform::kAccessDenied);
  BlockChangedFiles(kDirectory);
  EXPECT_FALSE(Passes(AppConnection()));
  EXPECT_EQ(FilterCount(TheEngine), recorded);
  EXPECT_TRUE(Core.ChangedFilePending);
}

}  // namespace
}  // namespace kestrelon

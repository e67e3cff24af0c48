#include "filtering/apply_config.h"

#include "base/text.h"
#include "filtering/changed_files.h"
#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

class ApplyingConfig : public FilterWorld {
 protected:
  bool ApplyIt(Config& config) {
    GuardLock lock(ConfigGuard);
    bool changed = false;
    return ApplyConfig(config, error_, changed);
  }
};

TEST_F(ApplyingConfig, AFailureKeepsFingerprintWarningsAndPinnedFiles) {
  Config config;
  config.apps.resize(1);
  config.apps[0].path = kApp;
  ASSERT_TRUE(ApplyIt(config));
  Config next;
  next.rules = {Rule(true, L"nonsense")};
  machine_.faults.FailOnce("CommitTransaction", platform::kTransactionTimeout);
  EXPECT_FALSE(ApplyIt(next));
  EXPECT_TRUE(error_.starts_with(L"FwpmTransactionCommit0: 0x80320012")) << Utf8FromWide(error_);
  {
    GuardLock lock(ConfigGuard);
    EXPECT_FALSE(IdentitiesDrifted(config));
  }
  EXPECT_EQ(LogCount("Warning: "), 0u);
  EXPECT_TRUE(Passes(AppConnection()));
  machine_.files.Write(kApp, "replaced");
  BlockChangedFiles(L"c:\\app");
  EXPECT_FALSE(Passes(AppConnection()));
}

}  // namespace
}  // namespace kestrelon

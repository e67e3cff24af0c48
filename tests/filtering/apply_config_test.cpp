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
    config_changed_ = false;
    return ApplyConfig(config, error_, config_changed_);
  }

  std::wstring Fingerprint() {
    GuardLock lock(ConfigGuard);
    return InstalledFingerprint();
  }

  bool config_changed_ = false;
};

AppEntry UnsignedApp() {
  AppEntry app;
  app.path = kApp;
  app.inbound = true;
  return app;
}

TEST_F(ApplyingConfig, LearnsInstallsAndKeepsTheFingerprint) {
  Config config;
  config.apps = {UnsignedApp()};
  ASSERT_TRUE(ApplyIt(config)) << Utf8FromWide(error_);
  EXPECT_TRUE(config_changed_);
  ASSERT_EQ(config.apps[0].sha256.size(), 1u);
  EXPECT_TRUE(Passes(AppConnection()));
  EXPECT_EQ(Fingerprint(),
            L"C:\\App\\app.exe|1||" + config.apps[0].sha256[0] + L";|dns:192.0.2.53");
  ASSERT_TRUE(ApplyIt(config));
  EXPECT_FALSE(config_changed_);
}

TEST_F(ApplyingConfig, AFailureKeepsFingerprintWarningsAndPinnedFiles) {
  Config config;
  config.apps = {UnsignedApp()};
  ASSERT_TRUE(ApplyIt(config));
  const std::wstring fingerprint = Fingerprint();
  Config next;
  next.rules = {Rule(true, L"nonsense")};
  machine_.faults.FailOnce("CommitTransaction", platform::kTransactionTimeout);
  EXPECT_FALSE(ApplyIt(next));
  EXPECT_TRUE(error_.starts_with(L"FwpmTransactionCommit0: 0x80320012")) << Utf8FromWide(error_);
  EXPECT_EQ(Fingerprint(), fingerprint);
  EXPECT_EQ(LogCount("Warning: "), 0u);
  EXPECT_TRUE(Passes(AppConnection()));
  machine_.files.Write(kApp, "replaced");
  BlockChangedFiles(L"c:\\app");
  EXPECT_FALSE(Passes(AppConnection()));
}

TEST_F(ApplyingConfig, AWarningThatStandsIsLoggedOnce) {
  Config config;
  config.rules = {Rule(true, L"nonsense")};
  const char* warning = "Warning: Rule 'allow' skipped: invalid IP address: nonsense";
  ASSERT_TRUE(ApplyIt(config));
  ASSERT_TRUE(ApplyIt(config));
  EXPECT_EQ(LogCount(warning), 1u);
  Config mended;
  ASSERT_TRUE(ApplyIt(mended));
  ASSERT_TRUE(ApplyIt(config));
  EXPECT_EQ(LogCount(warning), 2u);
}

TEST_F(ApplyingConfig, ADisabledConfigurationLearnsButPinsAndInstallsNothing) {
  Install({Rule(false)}, {BlockedApp()});
  Config config;
  config.enabled = false;
  config.apps = {UnsignedApp()};
  ASSERT_TRUE(ApplyIt(config));
  EXPECT_TRUE(config_changed_);
  EXPECT_TRUE(machine_.engine.Filters().empty());
  ExpectRecordFits();
  machine_.files.Write(kApp, "replaced");
  BlockChangedFiles(L"c:\\app");
  EXPECT_TRUE(machine_.engine.Filters().empty());
}

}  // namespace
}  // namespace kestrelon

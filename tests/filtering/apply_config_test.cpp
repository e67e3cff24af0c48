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

  bool Drifted(const Config& config) {
    GuardLock lock(ConfigGuard);
    return IdentitiesDrifted(config);
  }

  bool config_changed_ = false;
};

AppEntry UnsignedApp() {
  AppEntry app;
  app.path = kApp;
  app.inbound = true;
  return app;
}

TEST_F(ApplyingConfig, WhatItLearnsAndInstallsIsNoDriftUntilSomethingChanges) {
  Config config;
  config.apps = {UnsignedApp()};
  ASSERT_TRUE(ApplyIt(config)) << Utf8FromWide(error_);
  EXPECT_TRUE(config_changed_);
  ASSERT_EQ(config.apps[0].sha256.size(), 1u);
  EXPECT_TRUE(Passes(AppConnection()));
  ASSERT_TRUE(ApplyIt(config));
  EXPECT_FALSE(config_changed_);
  EXPECT_FALSE(Drifted(config));
  machine_.files.Write(kApp, "replaced");
  EXPECT_TRUE(Drifted(config));
  machine_.files.Write(kApp, "app");
  EXPECT_FALSE(Drifted(config));
  machine_.network.SetDnsServers({L"192.0.2.54"});
  EXPECT_TRUE(Drifted(config));
}

TEST_F(ApplyingConfig, AFailureKeepsFingerprintWarningsAndPinnedFiles) {
  Config config;
  config.apps = {UnsignedApp()};
  ASSERT_TRUE(ApplyIt(config));
  Config next;
  next.rules = {Rule(true, L"nonsense")};
  machine_.faults.FailOnce("CommitTransaction", platform::kTransactionTimeout);
  EXPECT_FALSE(ApplyIt(next));
  EXPECT_TRUE(error_.starts_with(L"FwpmTransactionCommit0: 0x80320012")) << Utf8FromWide(error_);
  EXPECT_FALSE(Drifted(config));
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

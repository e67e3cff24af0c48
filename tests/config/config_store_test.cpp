#include "config/config_store.h"

#include <gtest/gtest.h>

#include "config/config_file.h"
#include "config/presets.h"
#include "platform/codes.h"
#include "tests/config/store_world.h"

namespace kestrelon::test {
namespace {

constexpr const char* kDamage = "{\"enabled\": tr";

std::wstring BackupPath(const std::wstring& name) {
  return kBackups + name;
}

TEST(ObtainStartConfig, AFirstStartThatCannotWriteIsFollowedByAnother) {
  StoreWorld world;
  world.machine().faults.FailOnce("RenameFile", platform::kAccessDenied);
  EXPECT_EQ(world.Obtain(), DefaultConfig());
  EXPECT_FALSE(world.Created());
  EXPECT_TRUE(world.Log().starts_with(L"Cannot write default configuration: cannot replace "));
  EXPECT_EQ(world.Obtain(), DefaultConfig());
  EXPECT_TRUE(world.Created());
  EXPECT_EQ(world.Fallback(), L"|||");
}

TEST(ObtainStartConfig, TakesWhatLoadsOrRestoresOrBlocksAll) {
  const std::wstring damaged = L"Configuration is unreadable (invalid JSON in " + kConfigFile +
                               L": unexpected character) - moving it to config.json.bad\n";
  const std::wstring missing = L"Configuration file is missing although it existed before\n";
  const Config good = MarkedConfig(L"good");
  const std::string good_text = ConfigText(good);
  const std::string earlier_text = ConfigText(MarkedConfig(L"earlier"));
  struct Case {
    const char* claim;
    bool created;
    std::string file;  // contents; empty for no file
    std::string last_good;
    std::string backup;
    Config obtained;
    const wchar_t* fallback;
    std::wstring log;
  };
  const Case cases[] = {
      {"a first start makes the default", false, "", "", "", DefaultConfig(), L"|||",
       L"Created default configuration (strict whitelist)\n"},
      {"what loads is taken", false, good_text, earlier_text, "", good, L"|||", L""},
      {"damage is replaced by the last working copy", false, kDamage, good_text, earlier_text, good,
       L"restored|corrupt|lastgood|",
       damaged + L"Configuration restored from the last working copy\n"},
      {"a missing file is no first start", true, "", "", good_text, good,
       L"restored|missing|2026-11-13 16:35:03|",
       missing + L"Configuration restored from the backup of 2026-11-13 16:35:03\n"},
      {"with nothing to restore all is blocked", false, kDamage, "", kDamage, StrictConfig(),
       L"strict|corrupt||", damaged + L"Strict fallback: all traffic blocked except loopback\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.claim);
    StoreWorld world;
    world.SetCreated(c.created ? 1 : 0);
    const auto put = [&world](const std::wstring& path, const std::string& content) {
      if (!content.empty()) world.files().Write(path, content);
    };
    put(kConfigFile, c.file);
    put(kLastGood, c.last_good);
    put(BackupPath(L"config-20261113-163503.json"), c.backup);
    put(kConfigFile + L".bad", "an earlier one");
    EXPECT_EQ(world.Obtain(), c.obtained);
    EXPECT_EQ(world.Loaded(kConfigFile), c.obtained);
    const bool strict = c.obtained == StrictConfig();
    EXPECT_EQ(world.files().Read(kLastGood),
              strict ? std::nullopt : world.files().Read(kConfigFile));
    EXPECT_EQ(world.files().Read(kConfigFile + L".bad"),
              c.file == kDamage ? kDamage : "an earlier one");
    EXPECT_TRUE(world.Created());
    EXPECT_EQ(world.Fallback(), c.fallback);
    EXPECT_EQ(world.Log(), c.log);
    world.files().Remove(kDirectory);
  }
}

TEST(RestoreConfig, TakesTheNewestCopyThatLoads) {
  struct Row {
    std::vector<std::pair<std::wstring, bool>> backups;  // name, whether it loads
    std::wstring taken;                                  // empty for none
    std::wstring source;
  };
  const std::wstring older = L"config-20261113-163503.json";
  const std::wstring newer = L"config-20261114-000000.json";
  const Row rows[] = {
      {{}, L"", L""},
      {{{older, false}}, L"", L""},
      {{{older, true}, {newer, true}}, newer, L"2026-11-14 00:00:00"},
      {{{older, true}, {newer, false}}, older, L"2026-11-13 16:35:03"},
      // Names of 15 characters and more are cut like a stamp.
      {{{older, true}, {L"config-zzz.json", true}}, L"config-zzz.json", L"conf-ig--z z.:js:on"},
      {{{L"other-20261113-163503.json", true}, {L"config-1.jso", true}}, L"", L""},
  };
  for (const Row& row : rows) {
    StoreWorld world;
    world.files().MakeDirectories(kDirectory + L"\\backups");
    world.files().Write(kLastGood, kDamage);
    for (const auto& [name, loads] : row.backups) {
      world.files().Write(BackupPath(name), loads ? ConfigText(MarkedConfig(name)) : kDamage);
    }
    Config config = MarkedConfig(L"before");
    std::wstring source;
    EXPECT_EQ(RestoreConfig(config, source), !row.source.empty());
    EXPECT_EQ(source, row.source);
    EXPECT_EQ(config, MarkedConfig(row.source.empty() ? L"before" : row.taken));
    EXPECT_EQ(world.Log(), L"");
    world.files().Remove(kDirectory);
  }
}

TEST(BackupConfig, KeepsTheTenNewest) {
  StoreWorld world;
  BackupConfig();  // nothing to back up
  EXPECT_FALSE(world.files().Exists(kDirectory + L"\\backups"));
  for (int i = 0; i < 12; ++i) {
    for (const std::wstring mark : {L"first in this second ", L""}) {
      world.Put(kConfigFile, MarkedConfig(mark + std::to_wstring(i)));
      BackupConfig();
    }
    if (i == 5) world.Put(BackupPath(L"config-zzz.json"), Config{});
    EXPECT_EQ(world.files().Names(kDirectory + L"\\backups").size(),
              static_cast<std::size_t>(i < 5 ? i + 1 : std::min(i + 2, 10)));
    world.machine().clock.Advance(61'000);
  }
  const auto names = world.files().Names(kDirectory + L"\\backups");
  EXPECT_EQ(names.front(), L"config-20261121-120303.json");
  EXPECT_EQ(names.back(), L"config-zzz.json");
  EXPECT_EQ(world.Loaded(BackupPath(L"config-20261121-121111.json")), MarkedConfig(L"11"));
}

TEST(BackupConfig, AFailedCopyIsToldAndNothingIsRotated) {
  StoreWorld world;
  world.Put(kConfigFile, Config{});
  for (int i = 0; i < 12; ++i) {
    world.Put(BackupPath(L"config-" + std::to_wstring(i) + L".json"), Config{});
  }
  world.machine().faults.FailOnce("DuplicateFile", platform::kDiskFull);
  BackupConfig();
  EXPECT_EQ(world.files().Names(kDirectory + L"\\backups").size(), 12u);
  EXPECT_TRUE(world.Log().starts_with(L"Cannot back up the configuration: 0x00000070"));
}

TEST(SaveConfig, LastWorkingCopyIsSparedByTheStrictFallbackOnly) {
  for (const wchar_t* kind : {L"", L"restored", L"strict"}) {
    StoreWorld world;
    world.Put(kLastGood, MarkedConfig(L"good"));
    const bool spared = kind == std::wstring(L"strict");
    const GuardLock lock(ConfigGuard);
    Core.FallbackKind = kind;
    Core.CurrentConfig = MarkedConfig(L"new");
    SaveCurrentConfig();
    EXPECT_EQ(world.Loaded(kConfigFile), MarkedConfig(L"new"));
    EXPECT_EQ(world.Loaded(kLastGood), MarkedConfig(spared ? L"good" : L"new")) << kind;
    std::wstring error;
    EXPECT_TRUE(SaveConfig(MarkedConfig(L"newer"), error)) << error;
    EXPECT_EQ(world.Loaded(kConfigFile), MarkedConfig(L"newer"));
    EXPECT_EQ(world.Loaded(kLastGood), MarkedConfig(spared ? L"good" : L"newer")) << kind;
  }
}

TEST(SaveConfig, FailureOfTheSecondFileCountsAsSaved) {
  StoreWorld world;
  const GuardLock lock(ConfigGuard);
  Core.CurrentConfig = MarkedConfig(L"new");
  world.machine().faults.FailNthOf("FlushFile", 2, platform::kDiskFull);
  SaveCurrentConfig();
  EXPECT_EQ(world.Loaded(kConfigFile), MarkedConfig(L"new"));
  EXPECT_TRUE(world.Log().starts_with(L"Cannot save the last working configuration: cannot write " +
                                      kLastGood + L".tmp: 0x"));
  world.files().Remove(kDirectory + L"\\service.log");
  world.machine().faults.FailOnce("FlushFile", platform::kDiskFull);
  SaveCurrentConfig();
  EXPECT_TRUE(world.Log().starts_with(L"Cannot save configuration: cannot write " + kConfigFile));
  EXPECT_FALSE(world.files().Exists(kLastGood));
}

}  // namespace
}  // namespace kestrelon::test

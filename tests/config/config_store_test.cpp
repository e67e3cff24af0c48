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

TEST(ObtainStartConfig, FirstStartMakesTheDefault) {
  StoreWorld world;
  EXPECT_EQ(world.Obtain(), DefaultConfig());
  EXPECT_EQ(world.Loaded(kConfigFile), DefaultConfig());
  EXPECT_EQ(world.Loaded(kLastGood), DefaultConfig());
  EXPECT_TRUE(world.Created());
  EXPECT_EQ(world.Fallback(), L"|||");
  EXPECT_EQ(world.Log(), L"Created default configuration (strict whitelist)\n");
}

TEST(ObtainStartConfig, AFirstStartThatCannotWriteIsFollowedByAnother) {
  StoreWorld world;
  world.machine().faults.FailOnce("RenameFile", platform::kAccessDenied);
  EXPECT_EQ(world.Obtain(), DefaultConfig());
  EXPECT_FALSE(world.Created());
  const std::wstring log = world.Log();
  EXPECT_TRUE(log.starts_with(L"Cannot write default configuration: cannot replace " + kConfigFile))
      << log;
  EXPECT_TRUE(log.ends_with(L"\nCreated default configuration (strict whitelist)\n")) << log;
  EXPECT_EQ(world.Obtain(), DefaultConfig());
  EXPECT_TRUE(world.Created());
  EXPECT_EQ(world.Fallback(), L"|||");
}

TEST(ObtainStartConfig, AConfigurationThatLoadsBecomesTheLastWorkingCopy) {
  StoreWorld world;
  world.Put(kConfigFile, MarkedConfig(L"now"));
  world.Put(kLastGood, MarkedConfig(L"earlier"));
  EXPECT_EQ(world.Obtain(), MarkedConfig(L"now"));
  EXPECT_EQ(world.Loaded(kLastGood), MarkedConfig(L"now"));
  EXPECT_TRUE(world.Created());
  EXPECT_EQ(world.Fallback() + world.Log(), L"|||");
}

TEST(ObtainStartConfig, ADamagedFileIsMovedAsideAndReplacedByTheLastWorkingCopy) {
  StoreWorld world;
  world.files().Write(kConfigFile, kDamage);
  world.files().Write(kConfigFile + L".bad", "an earlier one");
  world.Put(kLastGood, MarkedConfig(L"good"));
  EXPECT_EQ(world.Obtain(), MarkedConfig(L"good"));
  EXPECT_EQ(world.Loaded(kConfigFile), MarkedConfig(L"good"));
  EXPECT_EQ(world.files().Read(kConfigFile + L".bad"), kDamage);
  EXPECT_TRUE(world.Created());
  EXPECT_EQ(world.Fallback(), L"restored|corrupt|lastgood|");
  EXPECT_EQ(world.Log(), L"Configuration is unreadable (invalid JSON in " + kConfigFile +
                             L": unexpected character) - moving it to config.json.bad\n"
                             L"Configuration restored from the last working copy\n");
}

TEST(ObtainStartConfig, AMissingFileIsNoFirstStartOnceThereWasOne) {
  StoreWorld world;
  world.SetCreated();
  world.Put(BackupPath(L"config-20261113-163503.json"), MarkedConfig(L"backup"));
  EXPECT_EQ(world.Obtain(), MarkedConfig(L"backup"));
  EXPECT_EQ(world.Loaded(kConfigFile), MarkedConfig(L"backup"));
  EXPECT_EQ(world.Loaded(kLastGood), MarkedConfig(L"backup"));
  EXPECT_EQ(world.Fallback(), L"restored|missing|2026-11-13 16:35:03|");
  EXPECT_EQ(world.Log(),
            L"Configuration file is missing although it existed before\n"
            L"Configuration restored from the backup of 2026-11-13 16:35:03\n");
}

TEST(ObtainStartConfig, WithNothingToRestoreAllIsBlocked) {
  StoreWorld world;
  world.files().Write(kConfigFile, kDamage);
  world.files().Write(kLastGood, kDamage);
  EXPECT_EQ(world.Obtain(), StrictConfig());
  EXPECT_EQ(world.Loaded(kConfigFile), StrictConfig());
  EXPECT_EQ(world.files().Read(kLastGood), kDamage);
  EXPECT_TRUE(world.Created());
  EXPECT_EQ(world.Fallback(), L"strict|corrupt||");
  EXPECT_TRUE(world.Log().ends_with(L"Strict fallback: all traffic blocked except loopback\n"));
}

TEST(ObtainStartConfig, ARecoveryThatCannotBeWrittenIsStillInForce) {
  StoreWorld world;
  world.SetCreated();
  world.files().SetFull(true);
  EXPECT_EQ(world.Obtain(), StrictConfig());
  EXPECT_EQ(world.Fallback(), L"strict|missing||");
  world.Put(kLastGood, MarkedConfig(L"good"));
  EXPECT_EQ(world.Obtain(), MarkedConfig(L"good"));
  EXPECT_EQ(world.Fallback(), L"restored|missing|lastgood|");
}

TEST(ConfigCreated, OnlyTheValueOneCounts) {
  StoreWorld world;
  EXPECT_FALSE(ConfigCreatedIsSet());
  world.SetCreated(2);
  EXPECT_FALSE(ConfigCreatedIsSet());
  SetConfigCreated();
  EXPECT_TRUE(world.Created() && ConfigCreatedIsSet());
  world.machine().faults.FailAlways("WriteRegistryDword", platform::kAccessDenied);
  SetConfigCreated();  // writes nothing
  EXPECT_EQ(world.Log(), L"");
  world.SetCreated(0);
  SetConfigCreated();
  EXPECT_TRUE(
      world.Log().starts_with(L"Cannot write SOFTWARE\\Kestrelon\\ConfigCreated: 0x00000005"))
      << world.Log();
}

TEST(RestoreConfig, TakesTheNewestCopyThatLoads) {
  struct Row {
    std::vector<std::pair<std::wstring, bool>> backups;  // name, whether it loads
    std::wstring source;                                 // empty when there is none
    std::wstring taken;
  };
  const Row rows[] = {
      {{}, L"", L""},
      {{{L"config-20261113-163503.json", false}}, L"", L""},
      {{{L"config-20261113-163503.json", true}, {L"config-20261114-000000.json", true}},
       L"2026-11-14 00:00:00",
       L"config-20261114-000000.json"},
      {{{L"config-20261113-163503.json", true}, {L"config-20261114-000000.json", false}},
       L"2026-11-13 16:35:03",
       L"config-20261113-163503.json"},
      {{{L"config-20261113-163503.json", true}, {L"config-zzz.json", true}},
       L"conf-ig--z z.:js:on",
       L"config-zzz.json"},  // 15 characters: cut like a stamp
      {{{L"config-z.json", true}}, L"config-z.json", L"config-z.json"},
      {{{L"config-0123456789.json", true}}, L"0123-45-67 9.:js:on", L"config-0123456789.json"},
      {{{L"other-20261113-163503.json", true}, {L"config-1.jso", true}}, L"", L""},
  };
  for (const Row& row : rows) {
    StoreWorld world;
    world.files().MakeDirectories(kDirectory + L"\\backups");
    world.files().Write(kLastGood, kDamage);
    for (const auto& [name, loads] : row.backups) {
      if (loads) {
        world.Put(BackupPath(name), MarkedConfig(name));
      } else {
        world.files().Write(BackupPath(name), kDamage);
      }
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
    world.Put(kConfigFile, MarkedConfig(std::to_wstring(i)));
    BackupConfig();
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

TEST(BackupConfig, TwoInOneSecondAreOneFile) {
  StoreWorld world;
  for (const wchar_t* mark : {L"first", L"second"}) {
    world.Put(kConfigFile, MarkedConfig(mark));
    BackupConfig();
  }
  const auto names = world.files().Names(kDirectory + L"\\backups");
  ASSERT_EQ(names.size(), 1u);
  EXPECT_EQ(world.Loaded(BackupPath(names[0])), MarkedConfig(L"second"));
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
    const std::wstring kept = std::wstring(kind) == L"strict" ? L"good" : L"new";
    const GuardLock lock(ConfigGuard);
    Core.FallbackKind = kind;
    Core.CurrentConfig = MarkedConfig(L"new");
    SaveCurrentConfig();
    EXPECT_EQ(world.Loaded(kConfigFile), MarkedConfig(L"new"));
    EXPECT_EQ(world.Loaded(kLastGood), MarkedConfig(kept)) << kind;
    std::wstring error;
    EXPECT_TRUE(SaveStartConfig(MarkedConfig(L"newer"), error)) << error;
    EXPECT_EQ(world.Loaded(kConfigFile), MarkedConfig(L"newer"));
    EXPECT_EQ(world.Loaded(kLastGood), MarkedConfig(kept == L"good" ? L"good" : L"newer")) << kind;
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

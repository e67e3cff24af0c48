#include "config/config_file.h"

#include <gtest/gtest.h>

#include "config/atomic_write.h"
#include "platform/files.h"
#include "tests/config/store_world.h"

namespace kestrelon::test {
namespace {

std::wstring LoadError(StoreWorld& world, const std::string& bytes) {
  world.files().Write(kConfigFile, bytes);
  Config config = MarkedConfig(L"before");
  std::wstring error;
  EXPECT_FALSE(LoadConfigFile(kConfigFile, config, error));
  EXPECT_EQ(config, MarkedConfig(L"before"));
  return error;
}

TEST(ConfigFile, AcceptsOneByteOrderMark) {
  StoreWorld world;
  world.files().Write(kConfigFile, "\xEF\xBB\xBF{}");
  EXPECT_EQ(world.Loaded(kConfigFile), Config{});
  EXPECT_EQ(LoadError(world, "\xEF\xBB\xBF\xEF\xBB\xBF{}"),
            L"invalid JSON in C:\\ProgramData\\Kestrelon\\config.json: unexpected character");
}

TEST(ConfigFile, SizeLimitIsExclusive) {
  StoreWorld world;
  std::string text(0x4000000 - 1, ' ');
  text[0] = '{';
  text[1] = '}';
  world.files().Write(kConfigFile, text);
  EXPECT_EQ(world.Loaded(kConfigFile), Config{});
  EXPECT_TRUE(LoadError(world, text + " ")
                  .starts_with(L"cannot read C:\\ProgramData\\Kestrelon\\config.json: 0x00000000"));
}

TEST(AtomicWrite, FailureTellsTheStepAndChangesNothing) {
  StoreWorld world;
  std::wstring error;
  EXPECT_FALSE(AtomicWriteText(L"C:\\missing\\a.json", "x", error));
  EXPECT_TRUE(error.starts_with(L"cannot create C:\\missing\\a.json.tmp: 0x00000")) << error;
  const std::pair<const char*, std::wstring> cases[] = {
      {"OpenFile", L"cannot create " + kConfigFile + L".tmp: 0x00000070"},
      {"WriteFileBytes", L"cannot write " + kConfigFile + L".tmp: 0x00000070"},
      {"FlushFile", L"cannot write " + kConfigFile + L".tmp: 0x00000070"},
      {"RenameFile", L"cannot replace " + kConfigFile + L": 0x00000070"},
  };
  world.files().Write(kConfigFile, "old");
  for (const auto& [call, sentence] : cases) {
    SCOPED_TRACE(call);
    world.machine().faults.FailOnce(call, platform::kDiskFull);
    EXPECT_FALSE(AtomicWriteText(kConfigFile, "new", error));
    EXPECT_TRUE(error.starts_with(sentence)) << error;
    EXPECT_EQ(world.files().Read(kConfigFile), "old");
    EXPECT_FALSE(world.files().Exists(kConfigFile + L".tmp"));
  }
  EXPECT_EQ(world.files().open_handles(), 0u);
}

}  // namespace
}  // namespace kestrelon::test

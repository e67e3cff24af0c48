// What a power cut leaves: the volume's promises, tried on sequences of its own calls.
#include <gtest/gtest.h>

#include <functional>

#include "platform/files.h"
#include "platform/registry.h"
#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

constexpr const wchar_t* kTarget = L"C:\\Data\\settings";
constexpr const wchar_t* kTemporary = L"C:\\Data\\settings.tmp";
constexpr CutMode kModes[] = {CutMode::kLoseMetadata, CutMode::kKeepMetadata};

Code WriteFileWhole(const wchar_t* path, const std::string& text, bool flush) {
  File file;
  if (const Code code =
          OpenFile(path, kGenericWrite, kShareNone, kCreateAlways, kNormalFile, file)) {
    return code;
  }
  std::uint32_t written = 0;
  const auto size = static_cast<std::uint32_t>(text.size());
  if (const Code code = WriteFileBytes(file, text.data(), size, written)) return code;
  return flush ? FlushFile(file) : kSuccess;
}

Code Replace(bool flush) {
  if (const Code code = WriteFileWhole(kTemporary, "new text", flush)) return code;
  return RenameFile(kTemporary, kTarget, kReplaceExisting | kWriteThrough);
}

// Runs the steps with the power going at each operation in turn, and what is on the disk then.
void AtEachCut(CutMode mode, const std::function<Code()>& steps,
               const std::function<void(std::uint64_t n)>& check) {
  FileSystem& files = TheMachine().files;
  for (std::uint64_t n = 1;; ++n) {
    files.Remove(L"C:\\Data");
    files.Write(kTarget, "old");
    files.CutPowerAt(n, mode);
    const Code code = steps();
    if (!files.power_lost()) {
      EXPECT_GT(n, 1u);
      EXPECT_EQ(code, kSuccess);
      return;
    }
    EXPECT_EQ(code, kPowerLost);
    EXPECT_EQ(WriteRegistryDword(L"SOFTWARE\\X", L"Y", 1), kPowerLost);
    TheMachine().Restart();
    check(n);
  }
}

TEST(PowerCut, FlushedReplacementIsOldOrNewAtEveryCut) {
  for (const CutMode mode : kModes) {
    AtEachCut(
        mode, [] { return Replace(true); },
        [](std::uint64_t n) {
          const std::string text = TheMachine().files.Read(kTarget).value_or("missing");
          EXPECT_TRUE(text == "old" || text == "new text") << "cut " << n << ": " << text;
        });
  }
}

TEST(PowerCut, UnflushedReplacementLosesItsBytes) {
  std::string last;
  const auto remember = [&](std::uint64_t) { last = *TheMachine().files.Read(kTarget); };
  AtEachCut(
      CutMode::kKeepMetadata, [] { return Replace(false); }, remember);
  EXPECT_EQ(last, std::string(8, '\0'));
}

TEST(PowerCut, WriteThroughRenameMakesNamesDurableButNotBytes) {
  FileSystem& files = TheMachine().files;
  files.Write(kTarget, "old");
  ASSERT_EQ(Replace(false), kSuccess);
  files.CutPowerAt(1, CutMode::kLoseMetadata);
  EXPECT_EQ(MakeDirectory(L"C:\\Data\\next"), kPowerLost);
  TheMachine().Restart();
  EXPECT_EQ(files.Read(kTarget), "");
  EXPECT_FALSE(files.Exists(kTemporary));
  EXPECT_FALSE(files.Exists(L"C:\\Data\\next"));
}

TEST(PowerCut, OverwrittenFileIsOldOrBlankOrNew) {
  AtEachCut(
      CutMode::kLoseMetadata, [] { return WriteFileWhole(kTarget, "new text", true); },
      [](std::uint64_t) { EXPECT_EQ(TheMachine().files.Read(kTarget), "old"); });
  AtEachCut(
      CutMode::kKeepMetadata, [] { return WriteFileWhole(kTarget, "new text", true); },
      [](std::uint64_t n) {
        const std::string left[] = {"", std::string(4, '\0'), "new " + std::string(4, '\0')};
        EXPECT_EQ(TheMachine().files.Read(kTarget), left[n - 1]) << "cut " << n;
      });
}

TEST(PowerCut, NamesReachTheDiskInTheirOrder) {
  FileSystem& files = TheMachine().files;
  const auto steps = [] {
    if (const Code code = MakeDirectory(L"C:\\Data\\first")) return code;
    if (const Code code = RenameFile(kTarget, L"C:\\Data\\first\\moved", 0)) return code;
    // Flushing one file takes along all names that were changed before.
    if (const Code code = WriteFileWhole(L"C:\\Data\\other", "x", true)) return code;
    return RemoveFile(L"C:\\Data\\first\\moved");
  };
  AtEachCut(CutMode::kLoseMetadata, steps, [&](std::uint64_t n) {
    const bool flushed = n == 6;  // directory, rename, create, write, flush, delete
    EXPECT_EQ(files.Exists(L"C:\\Data\\first\\moved"), flushed) << "cut " << n;
    EXPECT_EQ(files.Exists(kTarget), !flushed) << "cut " << n;
    EXPECT_EQ(files.Exists(L"C:\\Data\\other"), flushed) << "cut " << n;
  });
  AtEachCut(CutMode::kKeepMetadata, steps, [&](std::uint64_t n) {
    EXPECT_EQ(files.Exists(L"C:\\Data\\first"), true) << "cut " << n;
    EXPECT_EQ(files.Exists(kTarget), n < 2) << "cut " << n;
    EXPECT_EQ(files.Exists(L"C:\\Data\\first\\moved"), n >= 2 && n < 6) << "cut " << n;
  });
}

TEST(PowerCut, BytesPutOverOrBehindFlushedOnesAreLostAlone) {
  FileSystem& files = TheMachine().files;
  const struct {
    std::uint32_t access;
    std::string kept;
  } rows[] = {{kGenericWrite, std::string(3, '\0')}, {kAppendData, "old" + std::string(2, '\0')}};
  for (const auto& row : rows) {
    files.Remove(L"C:\\Data");
    files.Write(kTarget, "old");
    File file;
    std::uint32_t written = 0;
    ASSERT_EQ(OpenFile(kTarget, row.access, kShareRead, kOpenExisting, 0, file), kSuccess);
    ASSERT_EQ(WriteFileBytes(file, "ne", 2, written), kSuccess);
    files.CutPowerAt(1, CutMode::kKeepMetadata);
    EXPECT_EQ(MakeDirectory(L"C:\\Data\\next"), kPowerLost);
    TheMachine().Restart();
    EXPECT_EQ(files.Read(kTarget), row.kept);
  }
}

// Emptying a file is a change of metadata like any other, and may be durable before what follows.
TEST(PowerCut, DurableTruncationLeavesNothingOfTheOldBytes) {
  FileSystem& files = TheMachine().files;
  files.Write(kTarget, "old");
  files.Write(L"C:\\Data\\a", "x");
  ASSERT_EQ(WriteFileWhole(kTarget, "new text", false), kSuccess);
  ASSERT_EQ(RenameFile(L"C:\\Data\\a", L"C:\\Data\\b", kWriteThrough), kSuccess);
  files.CutPowerAt(1, CutMode::kLoseMetadata);
  EXPECT_EQ(RemoveFile(L"C:\\Data\\b"), kPowerLost);
  TheMachine().Restart();
  EXPECT_EQ(files.Read(kTarget), "");
}

TEST(PowerCut, NameChangedTwiceComesBackAsItWas) {
  FileSystem& files = TheMachine().files;
  files.Write(kTarget, "old");
  ASSERT_EQ(RenameFile(kTarget, kTemporary, 0), kSuccess);
  ASSERT_EQ(WriteFileWhole(kTarget, "new text", false), kSuccess);
  files.CutPowerAt(1, CutMode::kLoseMetadata);
  EXPECT_EQ(RemoveFile(kTemporary), kPowerLost);
  TheMachine().Restart();
  EXPECT_EQ(files.Read(kTarget), "old");
  EXPECT_FALSE(files.Exists(kTemporary));
}

TEST(PowerCut, CopyCutInItsMiddleIsNoCopy) {
  AtEachCut(
      CutMode::kKeepMetadata, [] { return DuplicateFile(kTarget, kTemporary); },
      [](std::uint64_t) { EXPECT_NE(TheMachine().files.Read(kTemporary), "old"); });
}

TEST(PowerCut, RestartKillsHandlesAndKeepsTheRegistry) {
  Machine& machine = TheMachine();
  ASSERT_EQ(WriteRegistryDword(L"SOFTWARE\\X", L"Y", 7), kSuccess);
  machine.files.Write(kTarget, "old");
  File file;
  ASSERT_EQ(OpenFile(kTarget, kGenericRead, kShareAll, kOpenExisting, 0, file), kSuccess);
  const std::uint64_t before = machine.clock.Tick();
  machine.Restart();
  std::uint64_t size = 0;
  EXPECT_EQ(FileSize(file, size), kInvalidHandle);
  EXPECT_EQ(machine.files.open_handles(), 0u);
  EXPECT_EQ(machine.registry.Dword(L"software\\x", L"y"), 7u);
  EXPECT_LT(machine.clock.Tick(), before);
}

}  // namespace
}  // namespace simulation

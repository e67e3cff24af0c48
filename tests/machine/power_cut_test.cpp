// What a power cut leaves: the volume's promises, tried on sequences of its own calls.
#include <gtest/gtest.h>

#include <functional>

#include "platform/files.h"
#include "platform/processes.h"
#include "platform/registry.h"
#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

constexpr const wchar_t* kTarget = L"C:\\Data\\settings";
constexpr const wchar_t* kTemporary = L"C:\\Data\\settings.tmp";

Code WriteFileWhole(const wchar_t* path, const std::string& text, bool flush) {
  File file;
  if (const Code code = OpenFile(path, kGenericWrite, kShareNone, kCreateAlways, 0, file)) {
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

class PowerCut : public testing::Test {
 protected:
  PowerCut() { files_.Write(kTarget, "old"); }

  // Runs the steps with the power going at each operation in turn, and what is on the disk then.
  void AtEachCut(CutMode mode, const std::function<Code()>& steps,
                 const std::function<void(std::uint64_t n)>& check) {
    for (std::uint64_t n = 1;; ++n) {
      files_.Remove(L"C:\\Data");
      files_.Write(kTarget, "old");
      files_.CutPowerAt(n, mode);
      const Code code = steps();
      if (!files_.power_lost()) {
        EXPECT_GT(n, 1u);
        EXPECT_EQ(code, kSuccess);
        return;
      }
      EXPECT_EQ(code, kPowerLost);
      EXPECT_EQ(WriteRegistryDword(L"SOFTWARE\\X", L"Y", 1), kPowerLost);
      TheMachine().Restart();
      SCOPED_TRACE(testing::Message() << "cut " << n);
      check(n);
    }
  }

  void CutNow(CutMode mode) {
    files_.CutPowerAt(1, mode);
    EXPECT_EQ(MakeDirectory(L"C:\\Data\\next"), kPowerLost);
    TheMachine().Restart();
    EXPECT_EQ(files_.Exists(L"C:\\Data\\next"), mode == CutMode::kKeepMetadata);
  }

  FileSystem& files_ = TheMachine().files;
};

TEST_F(PowerCut, AReplacementIsOldOrNewAtEveryCutOnlyIfItsBytesAreFlushed) {
  std::string left;
  const auto read = [&](std::uint64_t) { left = files_.Read(kTarget).value_or("missing"); };
  const auto old_or_new = [&](std::uint64_t n) {
    read(n);
    EXPECT_TRUE(left == "old" || left == "new text") << left;
  };
  for (const CutMode mode : {CutMode::kLoseMetadata, CutMode::kKeepMetadata}) {
    AtEachCut(
        mode, [] { return Replace(true); }, old_or_new);
  }
  AtEachCut(
      CutMode::kKeepMetadata, [] { return Replace(false); }, read);
  EXPECT_EQ(left, std::string(8, '\0'));
}

TEST_F(PowerCut, OverwrittenFileIsOldOrBlankOrNew) {
  const auto overwrite = [] { return WriteFileWhole(kTarget, "new text", true); };
  AtEachCut(CutMode::kLoseMetadata, overwrite,
            [&](std::uint64_t) { EXPECT_EQ(files_.Read(kTarget), "old"); });
  AtEachCut(CutMode::kKeepMetadata, overwrite, [&](std::uint64_t n) {
    const std::string left[] = {"", std::string(4, '\0'), "new " + std::string(4, '\0')};
    EXPECT_EQ(files_.Read(kTarget), left[n - 1]);
  });
}

TEST_F(PowerCut, NamesReachTheDiskInTheirOrder) {
  const auto steps = [] {
    if (const Code code = MakeDirectory(L"C:\\Data\\first")) return code;
    if (const Code code = RenameFile(kTarget, L"C:\\Data\\first\\moved", 0)) return code;
    // Flushing one file takes along all names that were changed before.
    if (const Code code = WriteFileWhole(L"C:\\Data\\other", "x", true)) return code;
    return RemoveFile(L"C:\\Data\\first\\moved");
  };
  AtEachCut(CutMode::kLoseMetadata, steps, [&](std::uint64_t n) {
    const bool flushed = n == 6;  // directory, rename, create, write, flush, delete
    EXPECT_EQ(files_.Exists(L"C:\\Data\\first\\moved"), flushed);
    EXPECT_EQ(files_.Exists(kTarget), !flushed);
    EXPECT_EQ(files_.Exists(L"C:\\Data\\other"), flushed);
  });
  AtEachCut(CutMode::kKeepMetadata, steps, [&](std::uint64_t n) {
    EXPECT_TRUE(files_.Exists(L"C:\\Data\\first"));
    EXPECT_EQ(files_.Exists(kTarget), n < 2);
    EXPECT_EQ(files_.Exists(L"C:\\Data\\first\\moved"), n >= 2 && n < 6);
  });
}

TEST_F(PowerCut, StrikesTheRegistryAndTheStartsOfProgramsToo) {
  Machine& machine = TheMachine();
  int starts = 0;
  machine.processes.OnStart(kTarget, [&](std::uint32_t) { ++starts; });
  const auto steps = [&] {
    starts = 0;
    machine.registry.Remove(L"K", L"Pending");
    if (const Code code = WriteRegistryQword(L"K", L"Pending", 1)) return code;
    StartedProgram started;
    if (const Code code = StartProgram({kTarget, L"x", L"", L"", 0}, started)) return code;
    return DeleteRegistryValue(L"K", L"Pending");
  };
  for (const CutMode mode : {CutMode::kLoseMetadata, CutMode::kKeepMetadata}) {
    AtEachCut(mode, steps, [&](std::uint64_t n) {
      const bool there = mode == CutMode::kLoseMetadata ? n > 1 : n < 3;
      EXPECT_EQ(machine.registry.Qword(L"K", L"Pending").has_value(), there);
      EXPECT_EQ(starts, n == 3 ? 1 : 0);
    });
  }
}

}  // namespace
}  // namespace simulation

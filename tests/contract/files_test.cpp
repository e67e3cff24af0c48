// Files: opening, reading, writing, sharing.
#include "platform/files.h"

#include <gtest/gtest.h>

#include "platform/clock.h"
#include "tests/contract/scratch.h"

namespace {

using namespace kestrelon::platform;
using namespace contract;

class Files : public testing::Test {
 protected:
  static Code Open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                   FileDisposition disposition, File& file) {
    return OpenFile(path, access, share, disposition, kNormalFile, file);
  }
  static void Write(const File& file, const std::string& bytes) {
    std::uint32_t written = 0;
    const auto size = static_cast<std::uint32_t>(bytes.size());
    ASSERT_EQ(WriteFileBytes(file, bytes.data(), size, written), kSuccess);
    ASSERT_EQ(written, size);
  }

  const std::wstring directory_ = FreshDirectory();
  const std::wstring path_ = directory_ + L"\\a";
  File file_;
};
using OpenedFile = Files;
using FileBytes = Files;
using FileNames = Files;
using UsnRecord = Files;

TEST_F(OpenedFile, IsLeftAloneByAFailureThatTellsWhatIsMissing) {
  WriteWhole(path_, "a");
  ASSERT_EQ(OpenToRead(path_, file_), kSuccess);
  EXPECT_EQ(OpenToRead(directory_ + L"\\none", file_), kFileNotFound);
  EXPECT_EQ(OpenToRead(directory_ + L"\\none\\none", file_), kPathNotFound);
  EXPECT_EQ(Open(directory_ + L"\\none\\x", kGenericWrite, kShareNone, kOpenAlways, file_),
            kPathNotFound);
  EXPECT_EQ(OpenToRead(directory_, file_), kAccessDenied) << "a directory";
  std::uint64_t size = 0;
  EXPECT_EQ(FileSize(file_, size), kSuccess);
  EXPECT_EQ(size, 1u);
}

TEST_F(OpenedFile, IsCreatedKeptOrEmptiedByDisposition) {
  const std::pair<FileDisposition, const char*> opens[] = {
      {kOpenAlways, ""}, {kOpenAlways, "first"}, {kCreateAlways, ""}};
  for (const auto& [disposition, left] : opens) {
    ASSERT_EQ(Open(path_, kGenericWrite, kShareNone, disposition, file_), kSuccess);
    file_.Close();
    EXPECT_EQ(ReadWhole(path_), left);
    WriteWhole(path_, "first");
  }
}

// What two opens of one file may ask for at once: each must share what the other accesses.
TEST_F(OpenedFile, KeepsToTheSharingOfThoseWhoHaveItOpen) {
  struct {
    std::uint32_t access, share, second_access, second_share;
    bool together;
  } const cases[] = {
      {kGenericRead, kShareNone, kGenericRead, kShareAll, false},
      {kGenericRead, kShareAll, kGenericRead, kShareNone, false},
      {kGenericRead, kShareRead, kGenericRead, kShareRead, true},
      {kGenericRead, kShareRead, kGenericWrite, kShareAll, false},
      {kGenericWrite, kShareAll, kGenericRead, kShareRead, false},
      {kGenericWrite, kShareRead, kGenericRead, kShareRead | kShareWrite, true},
      {kAppendData, kShareRead, kGenericRead, kShareAll, true},
      {kAppendData, kShareRead, kAppendData, kShareAll, false},
      {kGenericWrite, kShareNone, kReadAttributes, kShareNone, true},
      {kReadAttributes, kShareNone, kGenericWrite, kShareNone, true},
  };
  WriteWhole(path_, "a");
  for (const auto& c : cases) {
    File second;
    ASSERT_EQ(Open(path_, c.access, c.share, kOpenExisting, file_), kSuccess);
    EXPECT_EQ(Open(path_, c.second_access, c.second_share, kOpenExisting, second),
              c.together ? kSuccess : kSharingViolation)
        << "case " << &c - cases;
    file_.Close();
    second.Close();
    EXPECT_EQ(Open(path_, kGenericWrite, kShareNone, kOpenExisting, second), kSuccess)
        << "a closed file is still held, case " << &c - cases;
  }
}

TEST_F(FileBytes, AreReadOnFromThePositionToTheEnd) {
  WriteWhole(path_, "abcde");
  ASSERT_EQ(OpenToRead(path_, file_), kSuccess);
  for (const char* piece : {"abc", "de", ""}) {
    char bytes[3] = {};
    std::uint32_t read = 0;
    ASSERT_EQ(ReadFileBytes(file_, bytes, 3, read), kSuccess);
    EXPECT_EQ(std::string(bytes, read), piece);
  }
}

TEST_F(FileBytes, AreAppendedAtTheEndAsItIsAtEachWrite) {
  WriteWhole(path_, "1");
  File second;
  const std::uint32_t share = kShareRead | kShareWrite;
  ASSERT_EQ(Open(path_, kAppendData, share, kOpenAlways, file_), kSuccess);
  ASSERT_EQ(Open(path_, kAppendData, share, kOpenAlways, second), kSuccess);
  Write(file_, "2");
  Write(second, "3");
  Write(file_, "4");
  EXPECT_EQ(ReadWhole(path_), "1234");
}

TEST_F(Files, InformationTellsSizeKindAndWriteTime) {
  const auto before = static_cast<std::uint64_t>(SystemTime());
  WriteWhole(path_, "12345");
  const auto after = static_cast<std::uint64_t>(SystemTime());
  FileInformation information;
  ASSERT_EQ(QueryFileInformation(directory_ + L"\\A", information), kSuccess);
  EXPECT_EQ(information.size, 5u);
  EXPECT_EQ(information.attributes & kAttributeDirectory, 0u);
  // File systems keep times more coarsely than the clock.
  constexpr std::uint64_t kTwoSeconds = 20'000'000;
  EXPECT_GE(information.write_time, before - kTwoSeconds);
  EXPECT_LE(information.write_time, after + kTwoSeconds);
  ASSERT_EQ(QueryFileInformation(directory_, information), kSuccess);
  EXPECT_EQ(QueryFileInformation(directory_ + L"\\none", information), kFileNotFound);
  EXPECT_EQ(QueryFileInformation(directory_ + L"\\none\\none", information), kPathNotFound);
  EXPECT_NE(information.attributes & kAttributeDirectory, 0u) << "changed by a failure";
}

TEST_F(FileNames, HaveTheLetterCaseOfTheDiskInTheirFinalFormWhateverTheyAreOpenedBy) {
  ASSERT_EQ(MakeDirectory(directory_ + L"\\Sub \u00c9"), kSuccess);
  WriteWhole(directory_ + L"\\Sub \u00c9\\File.Txt", "x");
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {L"\\SUB \u00e9\\file.TXT", L"\\Sub \u00c9\\File.Txt"}, {L"\\sub \u00e9", L"\\Sub \u00c9"}};
  for (const auto& [opened, final] : cases) {
    std::wstring path;
    ASSERT_EQ(OpenFile(directory_ + opened, kReadAttributes, kShareAll, kOpenExisting,
                       kBackupSemantics, file_),
              kSuccess);
    ASSERT_EQ(FinalPathName(file_, path), kSuccess);
    EXPECT_EQ(path, L"\\\\?\\" + directory_ + final);
  }
}

std::int64_t JournalNumber(const std::wstring& path) {
  File file;
  EXPECT_EQ(OpenFile(path, kReadAttributes, kShareAll, kOpenExisting, 0, file), kSuccess);
  std::vector<std::uint8_t> record;
  EXPECT_EQ(ReadUsnRecord(file, record), kSuccess);
  if (record.size() < 80) return -1;
  // Behind the two file references, which are 8 bytes in version 2 and 16 in version 3.
  const std::size_t at = record[4] == 2 ? 24 : 40;
  std::int64_t number = 0;
  for (std::size_t i = 8; i-- > 0;) number = number << 8 | record[at + i];
  return number;
}

TEST_F(UsnRecord, CarriesANumberThatRisesWithEachWrite) {
  const std::wstring path = directory_ + L"\\program.exe";
  WriteWhole(path, "one");
  const std::int64_t first = JournalNumber(path);
  EXPECT_GE(first, 0);
  EXPECT_EQ(JournalNumber(path), first);
  WriteWhole(path, "two");
  EXPECT_GT(JournalNumber(path), first);
}

}  // namespace

// Files: opening, reading, writing, sharing.
#include "platform/files.h"

#include <gtest/gtest.h>

#include "platform/clock.h"
#include "tests/contract/scratch.h"

namespace {

using namespace kestrelon::platform;
using namespace contract;

Code Open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
          FileDisposition disposition, File& file) {
  return OpenFile(path, access, share, disposition, kNormalFile, file);
}

void Write(const File& file, const std::string& bytes) {
  std::uint32_t written = 0;
  const auto size = static_cast<std::uint32_t>(bytes.size());
  ASSERT_EQ(WriteFileBytes(file, bytes.data(), size, written), kSuccess);
  ASSERT_EQ(written, size);
}

TEST(OpenFile, TellsAMissingFileFromAMissingParent) {
  const std::wstring directory = FreshDirectory();
  File file;
  EXPECT_EQ(OpenToRead(directory + L"\\none", file), kFileNotFound);
  EXPECT_EQ(OpenToRead(directory + L"\\none\\none", file), kPathNotFound);
  EXPECT_EQ(Open(directory + L"\\none\\x", kGenericWrite, kShareNone, kOpenAlways, file),
            kPathNotFound);
  EXPECT_FALSE(file.is_open());
}

TEST(OpenFile, LeavesAnOpenFileAloneWhenItFails) {
  const std::wstring directory = FreshDirectory();
  WriteWhole(directory + L"\\a", "a");
  File file;
  ASSERT_EQ(OpenToRead(directory + L"\\a", file), kSuccess);
  ASSERT_EQ(OpenToRead(directory + L"\\none", file), kFileNotFound);
  std::uint64_t size = 0;
  EXPECT_EQ(FileSize(file, size), kSuccess);
  EXPECT_EQ(size, 1u);
}

TEST(OpenFile, CreatesKeepsOrEmptiesByDisposition) {
  const std::wstring path = FreshDirectory() + L"\\a";
  File file;
  ASSERT_EQ(Open(path, kGenericWrite, kShareNone, kOpenAlways, file), kSuccess);
  Write(file, "first");
  file.Close();
  ASSERT_EQ(Open(path, kGenericWrite, kShareNone, kOpenAlways, file), kSuccess);
  file.Close();
  EXPECT_EQ(ReadWhole(path), "first");
  ASSERT_EQ(Open(path, kGenericWrite, kShareNone, kCreateAlways, file), kSuccess);
  file.Close();
  EXPECT_EQ(ReadWhole(path), "");
}

TEST(OpenFile, NeedsBackupSemanticsForADirectory) {
  const std::wstring directory = FreshDirectory();
  File file;
  EXPECT_EQ(OpenToRead(directory, file), kAccessDenied);
  EXPECT_EQ(OpenFile(directory, kReadAttributes, kShareAll, kOpenExisting, kBackupSemantics, file),
            kSuccess);
}

TEST(OpenFile, PaysNoRegardToLetterCase) {
  const std::wstring directory = FreshDirectory();
  WriteWhole(directory + L"\\Config \u00c9.json", "x");
  EXPECT_EQ(ReadWhole(directory + L"\\CONFIG \u00e9.JSON"), "x");
}

// What two opens of one file may ask for at once: each must share what the other accesses.
TEST(OpenFile, KeepsToTheSharingOfThoseWhoHaveItOpen) {
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
  const std::wstring path = FreshDirectory() + L"\\a";
  WriteWhole(path, "a");
  for (const auto& c : cases) {
    File first;
    File second;
    ASSERT_EQ(Open(path, c.access, c.share, kOpenExisting, first), kSuccess);
    EXPECT_EQ(Open(path, c.second_access, c.second_share, kOpenExisting, second),
              c.together ? kSuccess : kSharingViolation)
        << "case " << &c - cases;
    first.Close();
    second.Close();
    EXPECT_EQ(Open(path, kGenericWrite, kShareNone, kOpenExisting, second), kSuccess)
        << "a closed file is still held, case " << &c - cases;
  }
}

TEST(FileBytes, AreReadOnFromThePositionToTheEnd) {
  const std::wstring path = FreshDirectory() + L"\\a";
  WriteWhole(path, "abcde");
  File file;
  ASSERT_EQ(OpenToRead(path, file), kSuccess);
  char bytes[3] = {};
  std::uint32_t read = 0;
  ASSERT_EQ(ReadFileBytes(file, bytes, 3, read), kSuccess);
  EXPECT_EQ(std::string(bytes, read), "abc");
  ASSERT_EQ(ReadFileBytes(file, bytes, 3, read), kSuccess);
  EXPECT_EQ(std::string(bytes, read), "de");
  ASSERT_EQ(ReadFileBytes(file, bytes, 3, read), kSuccess);
  EXPECT_EQ(read, 0u);
}

TEST(FileBytes, AreAppendedAtTheEndAsItIsAtEachWrite) {
  const std::wstring path = FreshDirectory() + L"\\a";
  WriteWhole(path, "1");
  File first;
  File second;
  const std::uint32_t share = kShareRead | kShareWrite;
  ASSERT_EQ(Open(path, kAppendData, share, kOpenAlways, first), kSuccess);
  ASSERT_EQ(Open(path, kAppendData, share, kOpenAlways, second), kSuccess);
  Write(first, "2");
  Write(second, "3");
  Write(first, "4");
  EXPECT_EQ(ReadWhole(path), "1234");
}

TEST(FileBytes, AreRefusedWithoutTheAccess) {
  const std::wstring path = FreshDirectory() + L"\\a";
  WriteWhole(path, "a");
  File file;
  char byte = 'x';
  std::uint32_t count = 7;
  ASSERT_EQ(OpenToRead(path, file), kSuccess);
  EXPECT_EQ(WriteFileBytes(file, &byte, 1, count), kAccessDenied);
  EXPECT_EQ(FlushFile(file), kAccessDenied);
  ASSERT_EQ(Open(path, kGenericWrite, kShareAll, kOpenExisting, file), kSuccess);
  EXPECT_EQ(ReadFileBytes(file, &byte, 1, count), kAccessDenied);
  EXPECT_EQ(FlushFile(file), kSuccess);
  EXPECT_EQ(count, 7u);
}

TEST(FileInformation, TellsSizeKindAndWriteTime) {
  const std::wstring directory = FreshDirectory();
  const auto before = static_cast<std::uint64_t>(SystemTime());
  WriteWhole(directory + L"\\a", "12345");
  const auto after = static_cast<std::uint64_t>(SystemTime());
  FileInformation information;
  ASSERT_EQ(QueryFileInformation(directory + L"\\A", information), kSuccess);
  EXPECT_EQ(information.size, 5u);
  EXPECT_EQ(information.attributes & kAttributeDirectory, 0u);
  // File systems keep times more coarsely than the clock.
  constexpr std::uint64_t kTwoSeconds = 20'000'000;
  EXPECT_GE(information.write_time, before - kTwoSeconds);
  EXPECT_LE(information.write_time, after + kTwoSeconds);
  ASSERT_EQ(QueryFileInformation(directory, information), kSuccess);
  EXPECT_NE(information.attributes & kAttributeDirectory, 0u);
  EXPECT_EQ(QueryFileInformation(directory + L"\\none", information), kFileNotFound);
  EXPECT_EQ(QueryFileInformation(directory + L"\\none\\none", information), kPathNotFound);
  EXPECT_NE(information.attributes & kAttributeDirectory, 0u) << "changed by a failure";
}

TEST(FinalPathName, HasTheLetterCaseOfTheDisk) {
  const std::wstring directory = FreshDirectory();
  ASSERT_EQ(MakeDirectory(directory + L"\\Sub"), kSuccess);
  WriteWhole(directory + L"\\Sub\\File.Txt", "x");
  File file;
  std::wstring path;
  ASSERT_EQ(OpenToRead(directory + L"\\SUB\\file.TXT", file), kSuccess);
  ASSERT_EQ(FinalPathName(file, path), kSuccess);
  EXPECT_EQ(path, L"\\\\?\\" + directory + L"\\Sub\\File.Txt");
  ASSERT_EQ(OpenFile(directory + L"\\sub", kReadAttributes, kShareAll, kOpenExisting,
                     kBackupSemantics, file),
            kSuccess);
  ASSERT_EQ(FinalPathName(file, path), kSuccess);
  EXPECT_EQ(path, L"\\\\?\\" + directory + L"\\Sub");
}

TEST(LongNames, WorkToTheLimitOfAComponentAndBeyondThatOfAPath) {
  const std::wstring directory = FreshDirectory();
  const std::wstring name(255, L'n');
  const std::wstring deep = L"\\\\?\\" + directory + L"\\" + std::wstring(200, L'd');
  ASSERT_EQ(MakeDirectory(deep), kSuccess);
  WriteWhole(deep + L"\\" + name, "x");
  std::vector<FoundFile> found;
  ASSERT_EQ(FindFiles(deep + L"\\*", 9, found), kSuccess);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].name, name);
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

TEST(UsnRecord, CarriesANumberThatRisesWithEachWrite) {
  const std::wstring path = FreshDirectory() + L"\\program.exe";
  WriteWhole(path, "one");
  const std::int64_t first = JournalNumber(path);
  EXPECT_GE(first, 0);
  EXPECT_EQ(JournalNumber(path), first);
  WriteWhole(path, "two");
  EXPECT_GT(JournalNumber(path), first);
}

}  // namespace

// The volume's rules that need a property of the machine or its inner numbers.
#include <gtest/gtest.h>

#include "base/text.h"
#include "platform/files.h"
#include "platform/trust.h"
#include "simulation/machine/machine.h"
#include "simulation/machine/name_pattern.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

constexpr const wchar_t* kFile = L"C:\\Data\\File.bin";

class FileSystemTest : public testing::Test {
 protected:
  FileSystemTest() { files_.Write(kFile, "x"); }

  static Code Open(const wchar_t* path, std::uint32_t access, File& file) {
    return OpenFile(path, access, kShareAll, kOpenExisting, 0, file);
  }

  FileSystem& files_ = TheMachine().files;
};

TEST_F(FileSystemTest, ReadOnlyFileStays) {
  files_.Write(L"C:\\Data\\new", "y");
  files_.SetAttributes(kFile, kAttributeReadOnly);
  File file;
  EXPECT_EQ(Open(kFile, kAppendData, file), kAccessDenied);
  EXPECT_EQ(RemoveFile(kFile), kAccessDenied);
  EXPECT_EQ(RenameFile(L"C:\\Data\\new", kFile, kReplaceExisting), kAccessDenied);
  EXPECT_EQ(DuplicateFile(L"C:\\Data\\new", kFile), kAccessDenied);
  EXPECT_EQ(Open(kFile, kGenericRead, file), kSuccess);
}

TEST_F(FileSystemTest, DirectoryMovesWithWhatItHoldsButNotIntoItself) {
  EXPECT_EQ(RenameFile(L"C:\\Data", L"C:\\Data\\Inner", 0), kSharingViolation);
  EXPECT_EQ(RenameFile(L"C:\\Data", L"D:\\Data", 0), 17u);  // another volume
  File file;
  ASSERT_EQ(Open(kFile, kGenericRead, file), kSuccess);
  EXPECT_EQ(RenameFile(L"C:\\Data", L"C:\\Moved", 0), kAccessDenied);
  file.Close();
  EXPECT_EQ(RenameFile(L"C:\\Data", L"C:\\Moved", 0), kSuccess);
  EXPECT_EQ(files_.Read(L"C:\\Moved\\File.bin"), "x");
}

TEST_F(FileSystemTest, PathsAreReadAsThePlatformReadsThem) {
  files_.SetLink(L"C:\\loop", L"C:\\loop");
  const struct {
    const wchar_t* path;
    Code code;
  } rows[] = {
      {L"c:/DATA/file.BIN", kSuccess},
      {L"C:\\Data\\.\\x\\..\\File.bin. ", kSuccess},
      {L"\\\\?\\C:\\Data\\File.bin", kSuccess},
      {L"\\Data\\File.bin", kSuccess},
      {L"svchost.exe", kSuccess},  // relative to the service's directory
      {L"", kPathNotFound},
      {L"C:\\Data\\File.bin\\below", kPathNotFound},
      {L"E:\\x", kPathNotFound},
      {L"\\\\server\\share\\x", 53},
      {L"C:\\Data\\a?c", 123},
      {L"C:\\loop", 1921},
  };
  for (const auto& row : rows) {
    File file;
    EXPECT_EQ(Open(row.path, kReadAttributes, file), row.code) << kestrelon::Utf8FromWide(row.path);
  }
}

TEST(NamePattern, MatchesAsThePlatformDoes) {
  const struct {
    const wchar_t* pattern;
    const wchar_t* name;
    bool matches;
  } rows[] = {
      {L"*.", L"README", true},
      {L"*.", L"a.txt", false},
      {L"name.*", L"name", true},
      {L"config-*.json", L"config-1.json.bak", false},
      {L"a??", L"a", true},
      {L"a??", L"abcd", false},
      {L"*1*", L"app-1.2", true},
      {L"a?b", L"a.b", false},
      {L"\u00c4*", L"\u00e4pfel", true},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(NameMatches(row.pattern, row.name), row.matches)
        << kestrelon::Utf8FromWide(row.pattern);
  }
}

TEST_F(FileSystemTest, CatalogHoldsTheHashWhateverTheName) {
  files_.Write(L"C:\\Data\\copy", "x");
  files_.SignInCatalog(kFile, L"Contoso", L"SHA1");
  {
    CatalogMember member;
    EXPECT_EQ(FindCatalogMember(L"C:\\Data\\copy", L"SHA256", member), 1168u);
    ASSERT_EQ(FindCatalogMember(L"C:\\Data\\copy", L"SHA1", member), kSuccess);
    EXPECT_EQ(files_.open_handles(), 1u);
  }
  EXPECT_EQ(files_.open_handles(), 0u);
  files_.Write(kFile, "tampered");
  CatalogMember member;
  EXPECT_EQ(FindCatalogMember(kFile, L"SHA1", member), 1168u);
}

}  // namespace
}  // namespace simulation

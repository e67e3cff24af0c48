// The volume's rules that need a property of the machine or its inner numbers.
#include <gtest/gtest.h>

#include "base/text.h"
#include "platform/files.h"
#include "simulation/machine/machine.h"

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
  const std::pair<const wchar_t*, Code> rows[] = {
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
  for (const auto& [path, code] : rows) {
    File file;
    EXPECT_EQ(Open(path, kReadAttributes, file), code) << kestrelon::Utf8FromWide(path);
  }
}

}  // namespace
}  // namespace simulation

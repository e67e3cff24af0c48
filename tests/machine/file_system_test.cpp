// The volume's rules that need a second program, a property of the machine or its inner numbers.
#include <gtest/gtest.h>

#include "base/text.h"
#include "platform/files.h"
#include "platform/security.h"
#include "platform/trust.h"
#include "simulation/machine/machine.h"
#include "simulation/machine/name_pattern.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

constexpr const wchar_t* kFile = L"C:\\Data\\File.bin";

File OpenedForReading(const wchar_t* path) {
  File file;
  EXPECT_EQ(OpenFile(path, kGenericRead, kShareAll, kOpenExisting, 0, file), kSuccess);
  return file;
}

std::uint64_t Number(const std::vector<std::uint8_t>& bytes, std::size_t at, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = size; i-- > 0;) value = value << 8 | bytes.at(at + i);
  return value;
}

TEST(FileSystem, FileHeldByAnotherProgramIsRefused) {
  FileSystem& files = TheMachine().files;
  files.Write(kFile, "x");
  files.Write(L"C:\\Data\\new", "y");
  files.HoldOpen(kFile);
  File file;
  EXPECT_EQ(OpenFile(kFile, kGenericRead, kShareAll, kOpenExisting, 0, file), kSharingViolation);
  EXPECT_EQ(OpenFile(kFile, kGenericWrite, kShareNone, kCreateAlways, 0, file), kSharingViolation);
  EXPECT_EQ(OpenFile(kFile, kReadAttributes, kShareAll, kOpenExisting, 0, file), kSuccess);
  file.Close();
  EXPECT_EQ(RemoveFile(kFile), kSharingViolation);
  EXPECT_EQ(RenameFile(kFile, L"C:\\Data\\other", 0), kSharingViolation);
  EXPECT_EQ(RenameFile(L"C:\\Data\\new", kFile, kReplaceExisting), kAccessDenied);
  EXPECT_EQ(DuplicateFile(L"C:\\Data\\new", kFile), kSharingViolation);
  EXPECT_EQ(files.Read(kFile), "x");
  files.LetGo(kFile);
  EXPECT_EQ(RenameFile(L"C:\\Data\\new", kFile, kReplaceExisting), kSuccess);
  EXPECT_EQ(files.Read(kFile), "y");
}

TEST(FileSystem, ReadOnlyFileStays) {
  FileSystem& files = TheMachine().files;
  files.Write(kFile, "x");
  files.Write(L"C:\\Data\\new", "y");
  files.SetAttributes(kFile, kAttributeReadOnly);
  File file;
  EXPECT_EQ(OpenFile(kFile, kAppendData, kShareAll, kOpenAlways, 0, file), kAccessDenied);
  EXPECT_EQ(OpenFile(kFile, kGenericWrite, kShareAll, kCreateAlways, 0, file), kAccessDenied);
  EXPECT_EQ(RemoveFile(kFile), kAccessDenied);
  EXPECT_EQ(RenameFile(L"C:\\Data\\new", kFile, kReplaceExisting), kAccessDenied);
  EXPECT_EQ(DuplicateFile(L"C:\\Data\\new", kFile), kAccessDenied);
  EXPECT_EQ(OpenFile(kFile, kGenericRead, kShareAll, kOpenExisting, 0, file), kSuccess);
}

TEST(FileSystem, DirectoryMovesWithWhatItHoldsButNotIntoItself) {
  FileSystem& files = TheMachine().files;
  files.Write(kFile, "x");
  EXPECT_EQ(RenameFile(L"C:\\Data", L"C:\\Data\\Inner", 0), kSharingViolation);
  EXPECT_EQ(RenameFile(L"C:\\Data", L"D:\\Data", 0), 17u);  // another volume
  {
    const File open = OpenedForReading(kFile);
    EXPECT_EQ(RenameFile(L"C:\\Data", L"C:\\Moved", 0), kAccessDenied);
  }
  EXPECT_EQ(RenameFile(L"C:\\Data", L"C:\\Moved", 0), kSuccess);
  EXPECT_EQ(files.Read(L"C:\\Moved\\File.bin"), "x");
}

TEST(FileSystem, PathsAreReadAsThePlatformReadsThem) {
  TheMachine().files.Write(kFile, "x");
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
  };
  for (const auto& row : rows) {
    FileInformation information;
    EXPECT_EQ(QueryFileInformation(row.path, information), row.code)
        << kestrelon::Utf8FromWide(row.path);
  }
}

TEST(FileSystem, FullVolumeRefusesBytes) {
  FileSystem& files = TheMachine().files;
  files.Write(kFile, "x");
  files.SetFull(true);
  File file;
  ASSERT_EQ(OpenFile(kFile, kAppendData, kShareRead, kOpenAlways, kNormalFile, file), kSuccess);
  std::uint32_t written = 77;
  EXPECT_EQ(WriteFileBytes(file, "abc", 3, written), kDiskFull);
  EXPECT_EQ(written, 77u);
  EXPECT_EQ(DuplicateFile(kFile, L"C:\\Data\\copy"), kSharingViolation);
  file.Close();
  EXPECT_EQ(DuplicateFile(kFile, L"C:\\Data\\copy"), kDiskFull);
  EXPECT_FALSE(files.Exists(L"C:\\Data\\copy"));
  EXPECT_EQ(files.Read(kFile), "x");
}

TEST(FileSystem, JournalRecordHasThePlatformsLayout) {
  TheMachine().files.Write(kFile, "x");
  const File file = OpenedForReading(kFile);
  std::vector<std::uint8_t> record;
  ASSERT_EQ(ReadUsnRecord(file, record), kSuccess);
  ASSERT_EQ(record.size(), 80u);  // 60 bytes and "File.bin", rounded up to a multiple of 8
  EXPECT_EQ(Number(record, 0, 4), record.size());
  EXPECT_EQ(Number(record, 4, 2), 2u);
  EXPECT_EQ(Number(record, 56, 2), 16u);
  EXPECT_EQ(Number(record, 58, 2), 60u);
  EXPECT_EQ(Number(record, 60, 4), Number({'F', 0, 'i', 0}, 0, 4));
  TheMachine().files.SetUsnSupported(false);
  EXPECT_EQ(ReadUsnRecord(file, record), kNotSupported);
}

TEST(FileSystem, LinksLeadToTheirTarget) {
  FileSystem& files = TheMachine().files;
  files.Write(L"D:\\Real\\Program.exe", "x");
  files.Write(L"\\\\server\\share\\Tool.exe", "y");
  files.SetLink(L"C:\\Apps", L"D:\\Real");
  files.SetLink(L"C:\\tool", L"\\\\server\\share\\Tool.exe");
  std::wstring path;
  ASSERT_EQ(FinalPathName(OpenedForReading(L"c:/apps/PROGRAM.EXE"), path), kSuccess);
  EXPECT_EQ(path, L"\\\\?\\D:\\Real\\Program.exe");
  ASSERT_EQ(FinalPathName(OpenedForReading(L"C:\\tool"), path), kSuccess);
  EXPECT_EQ(path, L"\\\\?\\UNC\\server\\share\\Tool.exe");
  std::vector<FoundFile> found;
  ASSERT_EQ(FindFiles(L"C:\\app*", 10, found), kSuccess);
  EXPECT_EQ(found[0].attributes, kAttributeDirectory | kAttributeReparsePoint);
  EXPECT_EQ(RemoveFile(L"C:\\tool"), kSuccess);
  EXPECT_TRUE(files.Exists(L"\\\\server\\share\\Tool.exe"));
  files.SetLink(L"C:\\loop", L"C:\\loop");
  File file;
  EXPECT_EQ(OpenFile(L"C:\\loop", kGenericRead, kShareAll, kOpenExisting, 0, file), 1921u);
}

TEST(FileSystem, SearchPatternsFollowThePlatform) {
  const struct {
    const wchar_t* pattern;
    const wchar_t* name;
    bool matches;
  } rows[] = {
      {L"*.*", L"README", true},
      {L"*.", L"README", true},
      {L"*.", L"a.txt", false},
      {L"CONFIG-*.json", L"config-1.JSON", true},
      {L"config-*.json", L"config-1.json.bak", false},
      {L"a??", L"a", true},
      {L"a??", L"abcd", false},
      {L"a?b", L"a.b", false},
      {L"name.*", L"name", true},
      {L"*1*", L"app-1.2", true},
      {L"\u00c4*", L"\u00e4pfel", true},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(NameMatches(row.pattern, row.name), row.matches)
        << kestrelon::Utf8FromWide(row.pattern);
  }
}

TEST(FileSystem, SignatureCoversTheContent) {
  FileSystem& files = TheMachine().files;
  const TrustPass revocation{kRevokeWholeChain, kRevocationCheckChainExcludeRoot};
  const TrustPass none{kRevokeNone, kRevocationCheckNone};
  std::wstring signer;
  files.Write(kFile, "image");
  EXPECT_EQ(VerifyEmbeddedSignature(kFile, revocation, signer), kNoSignature);
  files.Sign(kFile, L"Contoso");
  EXPECT_EQ(VerifyEmbeddedSignature(kFile, revocation, signer), kSuccess);
  EXPECT_EQ(signer, L"Contoso");
  files.SetTrustResult(kFile, kRevocationOffline);
  EXPECT_EQ(VerifyEmbeddedSignature(kFile, revocation, signer), kRevocationOffline);
  EXPECT_EQ(signer, L"");
  EXPECT_EQ(VerifyEmbeddedSignature(kFile, none, signer), kSuccess);
  files.Write(kFile, "tampered");
  EXPECT_EQ(VerifyEmbeddedSignature(kFile, none, signer), kBadDigest);
}

TEST(FileSystem, CatalogHoldsTheHashWhateverTheName) {
  FileSystem& files = TheMachine().files;
  const TrustPass pass;
  files.Write(kFile, "image");
  files.Write(L"C:\\Data\\copy", "image");
  files.SignInCatalog(kFile, L"Contoso", L"SHA1");
  {
    CatalogMember member;
    EXPECT_EQ(FindCatalogMember(L"C:\\Data\\copy", L"SHA256", member), 1168u);
    ASSERT_EQ(FindCatalogMember(L"C:\\Data\\copy", L"SHA1", member), kSuccess);
    EXPECT_EQ(files.open_handles(), 1u);
    std::wstring signer;
    EXPECT_EQ(VerifyCatalogSignature(member, pass, signer), kSuccess);
    EXPECT_EQ(signer, L"Contoso");
  }
  EXPECT_EQ(files.open_handles(), 0u);
  files.Write(kFile, "tampered");
  CatalogMember member;
  EXPECT_EQ(FindCatalogMember(kFile, L"SHA1", member), 1168u);
}

TEST(FileSystem, ProtectionIsKeptOnTheFile) {
  SecurityDescriptor descriptor;
  ASSERT_EQ(DescriptorFromText(L"D:P(A;;FA;;;SY)", descriptor), kSuccess);
  EXPECT_EQ(ProtectFile(L"C:\\ProgramData", descriptor), kSuccess);
  EXPECT_EQ(TheMachine().files.Protection(L"C:\\ProgramData"), descriptor);
  ASSERT_EQ(DescriptorFromText(L"D:NO_ACCESS_CONTROL", descriptor), kSuccess);
  EXPECT_EQ(ProtectFile(L"C:\\ProgramData", descriptor), kInvalidSecurityDescriptor);
}

}  // namespace
}  // namespace simulation

#include "identity/file_identity.h"

#include <gtest/gtest.h>

#include <tuple>

#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

using simulation::TheMachine;

constexpr const wchar_t* kFile = L"C:\\Apps\\app.exe";
constexpr const wchar_t* kHashOfAbc =
    L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

const FileIdentity kMissing{};
const FileIdentity kUnknown{true, false, L"", L""};
const FileIdentity kSignedAbc{true, true, L"Contoso", kHashOfAbc};

void WriteSigned() {
  TheMachine().files.Write(kFile, "abc");
  TheMachine().files.Sign(kFile, L"Contoso");
}

// What the identity of the file costs now.
enum class Cost { kNothing, kHash, kVerification };

// Asks twice: without a readable file, which only a cached answer survives, then with revocation
// data missing for one pass, which only a verification notices.
Cost CostOfIdentity() {
  auto& faults = TheMachine().faults;
  faults.Clear();
  faults.FailAlways("ReadFileBytes", platform::kAccessDenied);
  const bool cached = IdentityFor(kFile) == kSignedAbc;
  faults.Clear();
  if (cached) return Cost::kNothing;
  faults.FailOnce("VerifyEmbeddedSignature", platform::kRevocationOffline);
  EXPECT_EQ(IdentityFor(kFile), kSignedAbc);
  const bool verified = faults.fired();
  faults.Clear();
  return verified ? Cost::kVerification : Cost::kHash;
}

TEST(FileIdentity, SaysWhatIsThere) {
  auto& files = TheMachine().files;
  files.Write(L"C:\\Apps\\plain.exe", "abc");
  files.Write(L"C:\\Apps\\tampered.exe", "abd");
  files.Sign(L"C:\\Apps\\tampered.exe", L"Contoso");
  files.Write(L"C:\\Apps\\tampered.exe", "abc");
  WriteSigned();
  EXPECT_EQ(IdentityFor(kFile), kSignedAbc);
  EXPECT_EQ(IdentityFor(L"c:\\apps\\APP.exe"), kSignedAbc);
  EXPECT_EQ(IdentityFor(L"C:\\Apps\\plain.exe"), (FileIdentity{true, false, L"", kHashOfAbc}));
  EXPECT_EQ(IdentityFor(L"C:\\Apps\\tampered.exe"), (FileIdentity{true, false, L"", kHashOfAbc}));
  EXPECT_EQ(IdentityFor(L"C:\\Apps"), kMissing);
  EXPECT_EQ(IdentityFor(L"C:\\Apps\\none.exe"), kMissing);
  EXPECT_EQ(IdentityFor(L"").exists, false);
  EXPECT_EQ(IdentityFor(L"SYSTEM"), IdentityFor(L"%SystemRoot%\\System32\\ntoskrnl.exe"));
  EXPECT_EQ(IdentityFor(L"System").signer, L"Microsoft Windows");
}

TEST(FileIdentity, UnreadableFileExistsAndIsNothingElse) {
  WriteSigned();
  TheMachine().files.HoldOpen(kFile);
  EXPECT_EQ(IdentityFor(kFile), kUnknown);
  TheMachine().files.LetGo(kFile);
  for (const char* call : {"ReadFileBytes", "Sha256::Begin", "Sha256::Add", "Sha256::Finish"}) {
    TheMachine().faults.FailOnce(call, platform::kAccessDenied);
    EXPECT_EQ(IdentityFor(kFile), kUnknown) << call;
  }
  EXPECT_EQ(IdentityFor(kFile), kSignedAbc) << "a failure is not kept";
}

TEST(FileIdentity, CostsOnlyWhatMayHaveChanged) {
  WriteSigned();
  EXPECT_EQ(CostOfIdentity(), Cost::kVerification);
  MarkIdentitiesStale(L"c:\\elsewhere");
  EXPECT_EQ(CostOfIdentity(), Cost::kNothing);
  TheMachine().files.Touch(kFile);
  EXPECT_EQ(CostOfIdentity(), Cost::kHash);
  EXPECT_EQ(CostOfIdentity(), Cost::kNothing);
  MarkIdentitiesStale(L"c:\\apps");
  EXPECT_EQ(CostOfIdentity(), Cost::kHash);
  EXPECT_EQ(CostOfIdentity(), Cost::kNothing);
}

TEST(FileIdentity, ChangeOfTheLastByteShowsThoughSizeAndTimeArePutBack) {
  std::string content(0x100000 * 2 + 7, 'a');
  const auto identity = [&] {
    TheMachine().files.Write(kFile, content);
    TheMachine().files.SetWriteTime(kFile, 1);
    return IdentityFor(kFile);
  };
  const FileIdentity before = identity();
  content.back() = 'b';
  EXPECT_NE(identity().sha256, before.sha256);
}

TEST(FileIdentity, FileThatChangesWhileItIsVerifiedIsNotTrusted) {
  auto& machine = TheMachine();
  WriteSigned();
  machine.faults.RunBefore("VerifyEmbeddedSignature", [&] { machine.files.Write(kFile, "abd"); });
  EXPECT_EQ(IdentityFor(kFile), kUnknown);
  WriteSigned();
  EXPECT_EQ(CostOfIdentity(), Cost::kVerification);

  TheMachine().files.Write(kFile, "abd");
  machine.faults.RunBefore("VerifyEmbeddedSignature", [&] { machine.files.Remove(kFile); });
  EXPECT_EQ(IdentityFor(kFile), kUnknown);
}

TEST(FileIdentity, CachedAnswerStandsForAWhile) {
  auto& machine = TheMachine();
  // Whether the volume gave a change number when the file was looked at, and whether it does now.
  const std::tuple<bool, bool, std::uint64_t> rows[] = {
      {true, true, 600000}, {true, false, 60000}, {false, true, 60000}, {false, false, 60000}};
  for (const auto& [numbered_then, numbered_now, valid_ms] : rows) {
    SCOPED_TRACE(testing::Message() << numbered_then << numbered_now);
    machine.files.SetUsnSupported(numbered_then);
    WriteSigned();
    ASSERT_EQ(IdentityFor(kFile), kSignedAbc);
    machine.files.SetUsnSupported(numbered_now);
    machine.clock.Advance(valid_ms - 1);
    EXPECT_EQ(CostOfIdentity(), Cost::kNothing);
    machine.clock.Advance(1);
    EXPECT_EQ(CostOfIdentity(), Cost::kHash);
    EXPECT_EQ(CostOfIdentity(), Cost::kNothing) << "the check starts a new while";
  }
}

TEST(FileIdentity, FullCacheStartsOver) {
  WriteSigned();
  ASSERT_EQ(IdentityFor(kFile), kSignedAbc);
  const auto fill = [](int first, int last) {
    for (int i = first; i <= last; ++i) {
      const std::wstring path = L"C:\\Many\\" + std::to_wstring(i);
      TheMachine().files.Write(path, "x");
      (void)IdentityFor(path);
    }
  };
  fill(2, 4096);
  EXPECT_EQ(CostOfIdentity(), Cost::kNothing);
  fill(4097, 4097);
  EXPECT_EQ(CostOfIdentity(), Cost::kVerification);
}

// On a volume without change numbers nothing else tells a file whose size and time were put back.
TEST(FileIdentity, OneVerifiedWhileItsDirectoryChangedIsHashedAgain) {
  WriteSigned();
  TheMachine().faults.RunBefore("VerifyEmbeddedSignature",
                                [] { MarkIdentitiesStale(L"c:\\apps"); });
  EXPECT_EQ(IdentityFor(kFile), kSignedAbc);
  EXPECT_EQ(CostOfIdentity(), Cost::kHash);
  EXPECT_EQ(CostOfIdentity(), Cost::kNothing);
}

}  // namespace
}  // namespace kestrelon

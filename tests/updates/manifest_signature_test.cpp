#include "updates/manifest_signature.h"

#include <gtest/gtest.h>

#include "simulation/machine/machine.h"
#include "tests/updates/signing.h"

namespace kestrelon {
namespace {

const std::string kManifest = "{\"format\": 1}\n";

constexpr const wchar_t* kUnknownFormat = L"the manifest signature has an unknown format";
constexpr const wchar_t* kUnknownKey = L"the manifest is signed with an unknown key";
constexpr const wchar_t* kDamaged = L"the manifest signature is damaged";
constexpr const wchar_t* kNoHash = L"cannot compute SHA-256";
constexpr const wchar_t* kInvalid = L"the manifest signature is not valid";

// The sentence of a refusal; empty when the signature is accepted.
std::wstring Problem(const std::string& manifest, const std::string& text) {
  std::wstring error;
  return VerifyManifestSignature(manifest, text, error) ? L"" : error;
}

TEST(ManifestSignature, OfEitherKeyIsAcceptedForItsOwnBytesAlone) {
  for (const char* key : {kFirstKey, kBackupKey}) {
    const std::string text = SignManifest(kManifest, key);
    for (const char* end : {"", "\n", "\r\n", " \r\n\n \r"}) {
      EXPECT_EQ(Problem(kManifest, text + end), L"") << text;
    }
    for (const std::string& other :
         {kManifest + "\n", "[" + kManifest.substr(1), kManifest.substr(1), std::string()}) {
      EXPECT_EQ(Problem(other, text), kInvalid) << other;
    }
  }
  EXPECT_EQ(Problem("", SignManifest("")), L"");
}

TEST(ManifestSignature, IsRefusedWithTheFirstFaultOfItsText) {
  const std::string text = SignManifest(kManifest);
  const std::string head = text.substr(0, text.size() - 88);
  const std::string base64 = text.substr(head.size());
  const std::string letters = base64.substr(0, 86);
  const std::string nul(1, '\0');
  const std::pair<const wchar_t*, std::vector<std::string>> cases[] = {
      {kUnknownFormat,
       {"", " \r\n", "ES256", head, "ES256 " + base64, "es256" + text.substr(5),
        "ES384" + text.substr(5), " " + text, "\n" + text, "\xEF\xBB\xBF" + text,
        "ES256\t" + text.substr(6)}},
      {kUnknownKey,
       {"ES256  " + base64, "ES256 kestrelon " + base64, "ES256 kestrelon-update2 " + base64,
        "ES256 Kestrelon-Update " + base64, "ES256 other damaged"}},
      {kDamaged,
       {head + " " + base64, head + base64.substr(1), head + "A" + base64, head + letters,
        head + letters + "AA", head + letters.substr(0, 40) + "  " + letters.substr(40),
        head + "\n" + letters + "=", head + "-" + base64.substr(1), head + nul + base64.substr(1),
        head + "==" + letters, text + "\t", text + "\nES256", text + " " + base64, text + nul}},
      {kInvalid,
       {"ES256 kestrelon-update-backup " + base64,
        head + std::string(86, 'A') + "==", head + std::string(86, '/') + "==",
        head + (letters[0] == 'A' ? "B" : "A") + base64.substr(1)}}};
  for (const auto& [problem, signatures] : cases) {
    for (const std::string& signature : signatures) {
      EXPECT_EQ(Problem(kManifest, signature), problem) << signature;
    }
  }
}

TEST(ManifestSignature, IsRefusedWhereThePlatformFails) {
  const std::pair<const char*, const wchar_t*> cases[] = {{"DecodeBase64", kDamaged},
                                                          {"Sha256::Begin", kNoHash},
                                                          {"Sha256::Add", kNoHash},
                                                          {"Sha256::Finish", kNoHash},
                                                          {"VerifyEcdsaP256", kInvalid}};
  const std::string text = SignManifest(kManifest);
  for (const auto& [call, problem] : cases) {
    simulation::TheMachine().faults.FailOnce(call, 8);
    EXPECT_EQ(Problem(kManifest, text), problem) << call;
  }
  EXPECT_EQ(Problem(kManifest, text), L"");
}

}  // namespace
}  // namespace kestrelon

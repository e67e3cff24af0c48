#include "identity/verify_trust.h"

#include <gtest/gtest.h>

#include <vector>

#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

using simulation::TheMachine;

struct Answer {
  platform::Code code = platform::kSuccess;
  const wchar_t* signer = L"";
};

TEST(Trust, SecondPassIsForUnknownRevocationAlone) {
  struct Row {
    std::vector<Answer> answers;  // of the passes in turn
    bool trusted;
  };
  const Answer good{platform::kSuccess, L"Contoso"};
  const Row rows[] = {
      {{good}, true},
      {{{platform::kSuccess, L""}}, false},
      {{{platform::kBadDigest}}, false},
      {{{platform::kRevocationFailure}, good}, true},
      {{{platform::kNoRevocationCheck}, good}, true},
      {{{platform::kRevocationOffline}, good}, true},
      {{{platform::kRevocationOffline}, {platform::kRevocationOffline}}, false},
      {{{platform::kRevocationOffline}, {platform::kBadDigest}}, false},
  };
  for (const Row& row : rows) {
    std::vector<platform::TrustPass> passes;
    const TrustCheck check = [&](const platform::TrustPass& pass, std::wstring& signer) {
      passes.push_back(pass);
      const Answer& answer = row.answers.at(passes.size() - 1);
      signer = answer.signer;
      return answer.code;
    };
    SCOPED_TRACE(testing::Message() << "first answer " << row.answers[0].code);
    std::wstring signer = L"before";
    EXPECT_EQ(VerifyTrust(check, signer), row.trusted);
    EXPECT_EQ(signer, row.trusted ? L"Contoso" : L"before");
    ASSERT_EQ(passes.size(), row.answers.size());
    EXPECT_EQ(passes[0].revocation_checks, 1u);
    EXPECT_EQ(passes[0].provider_flags, 0x1040u);
    if (passes.size() < 2) continue;
    EXPECT_EQ(passes[1].revocation_checks, 0u);
    EXPECT_EQ(passes[1].provider_flags, 0x1010u);
  }
}

TEST(Trust, CatalogStandsInForAnEmbeddedSignature) {
  struct Row {
    const char* content;  // catalogs know files by their content
    const wchar_t* embedded;
    const wchar_t* sha256;
    const wchar_t* sha1;
    const wchar_t* signer;
  };
  const Row rows[] = {
      {"1", L"Embedded", L"Newer", L"Older", L"Embedded"},
      {"2", nullptr, L"Newer", L"Older", L"Newer"},
      {"3", nullptr, nullptr, L"Older", L"Older"},
      {"4", nullptr, nullptr, nullptr, L"nobody"},
  };
  auto& files = TheMachine().files;
  for (const Row& row : rows) {
    const wchar_t* path = L"C:\\file.exe";
    files.Remove(path);
    files.Write(path, row.content);
    if (row.embedded) files.Sign(path, row.embedded);
    if (row.sha256) files.SignInCatalog(path, row.sha256, L"SHA256");
    if (row.sha1) files.SignInCatalog(path, row.sha1, L"SHA1");
    std::wstring signer = L"nobody";
    EXPECT_EQ(VerifyFile(path, signer), row.signer != std::wstring(L"nobody"));
    EXPECT_EQ(signer, row.signer);
  }
}

}  // namespace
}  // namespace kestrelon

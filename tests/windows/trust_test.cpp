// Real Authenticode signatures, made by tests/wine/make_signed_files.sh before the run.
#include "platform/trust.h"

#include <gtest/gtest.h>

namespace {

using namespace kestrelon::platform;

TEST(EmbeddedSignature, IsToldFromNoneAndFromABrokenOne) {
  const struct {
    const wchar_t* path;
    Code code;
    const wchar_t* signer;
  } cases[] = {
      {L"C:\\trust\\signed.exe", kSuccess, L"Kestrelon Test Signer"},
      {L"C:\\trust\\unsigned.exe", kNoSignature, L""},
      {L"C:\\trust\\tampered.exe", kBadDigest, L""},
  };
  const TrustPass passes[] = {
      {kRevokeWholeChain, kRevocationCheckChainExcludeRoot | kCacheOnlyUrlRetrieval},
      {kRevokeNone, kRevocationCheckNone | kCacheOnlyUrlRetrieval},
  };
  for (const auto& c : cases) {
    for (const TrustPass& pass : passes) {
      std::wstring signer = L"left over";
      EXPECT_EQ(VerifyEmbeddedSignature(c.path, pass, signer), c.code)
          << testing::PrintToString(c.path);
      EXPECT_EQ(signer, c.signer);
    }
  }
}

}  // namespace

#include "identity/verify_trust.h"

#include <utility>

namespace kestrelon {
namespace {

using platform::Code;
using platform::TrustPass;

constexpr TrustPass kWholeChainPass{
    platform::kRevokeWholeChain,
    platform::kRevocationCheckChainExcludeRoot | platform::kCacheOnlyUrlRetrieval};
constexpr TrustPass kNoRevocationPass{
    platform::kRevokeNone, platform::kRevocationCheckNone | platform::kCacheOnlyUrlRetrieval};

// The revocation could not be looked up, which says nothing against the signature itself.
bool IsRevocationUnknown(Code result) {
  return result == platform::kRevocationFailure || result == platform::kNoRevocationCheck ||
         result == platform::kRevocationOffline;
}

// Verifies the signature of the first catalog that holds the file's hash by `algorithm`.
bool VerifyCatalog(const std::wstring& path, const std::wstring& algorithm, std::wstring& signer) {
  platform::CatalogMember member;
  if (platform::FindCatalogMember(path, algorithm, member) != platform::kSuccess) return false;
  return VerifyTrust(
      [&member](const TrustPass& pass, std::wstring& found) {
        return platform::VerifyCatalogSignature(member, pass, found);
      },
      signer);
}

}  // namespace

bool VerifyTrust(const TrustCheck& check, std::wstring& signer) {
  std::wstring found;
  Code result = check(kWholeChainPass, found);
  if (IsRevocationUnknown(result)) result = check(kNoRevocationPass, found);
  // A signature without a name can't be recorded nor compared, so it is none.
  if (result != platform::kSuccess || found.empty()) return false;
  signer = std::move(found);
  return true;
}

bool VerifyFile(const std::wstring& path, std::wstring& signer) {
  const auto embedded = [&path](const TrustPass& pass, std::wstring& found) {
    return platform::VerifyEmbeddedSignature(path, pass, found);
  };
  // Catalogs of older systems know files by SHA-1 alone.
  return VerifyTrust(embedded, signer) || VerifyCatalog(path, L"SHA256", signer) ||
         VerifyCatalog(path, L"SHA1", signer);
}

}  // namespace kestrelon

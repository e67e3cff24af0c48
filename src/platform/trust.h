// Authenticode signatures, embedded in a file or held in a catalog.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/codes.h"

namespace kestrelon::platform {

// How one verification treats revocation; the values are the platform's WTD_ constants.
struct TrustPass {
  std::uint32_t revocation_checks = 0;
  std::uint32_t provider_flags = 0;
};

inline constexpr std::uint32_t kRevokeNone = 0;
inline constexpr std::uint32_t kRevokeWholeChain = 1;
inline constexpr std::uint32_t kRevocationCheckNone = 0x10;
inline constexpr std::uint32_t kRevocationCheckChainExcludeRoot = 0x40;
inline constexpr std::uint32_t kCacheOnlyUrlRetrieval = 0x1000;

struct CatalogState;

// A file's entry in the first catalog that holds its hash. Keeps the file and the catalog open.
class CatalogMember {
 public:
  CatalogMember();
  ~CatalogMember();
  CatalogMember(const CatalogMember&) = delete;
  CatalogMember& operator=(const CatalogMember&) = delete;

  CatalogState& state() const { return *state_; }

 private:
  std::unique_ptr<CatalogState> state_;
};

// Verifies the signature embedded in a file. On success `signer` holds the display name of the
// signing certificate, or stays empty when it has none; on failure it is empty. Closes what the
// verification opened on every path. May take seconds.
[[nodiscard]] Code VerifyEmbeddedSignature(const std::wstring& path, const TrustPass& pass,
                                           std::wstring& signer);

// Finds the first catalog that holds the file's hash by `algorithm` ("SHA256" or "SHA1").
[[nodiscard]] Code FindCatalogMember(const std::wstring& path, const std::wstring& algorithm,
                                     CatalogMember& member);

// Verifies a catalog's signature over a member found before; as VerifyEmbeddedSignature.
[[nodiscard]] Code VerifyCatalogSignature(const CatalogMember& member, const TrustPass& pass,
                                          std::wstring& signer);

}  // namespace kestrelon::platform

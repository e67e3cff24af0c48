#include "platform/trust.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "platform/files.h"
#include "simulation/machine/digest.h"
#include "simulation/machine/machine.h"

namespace kestrelon::platform {
namespace {

using simulation::TheMachine;

constexpr Code kFileError = 0x80092003;  // CRYPT_E_FILE_ERROR
constexpr Code kNoSuchHash = 1168;       // ERROR_NOT_FOUND

// What a verification that found a good signature answers by the file's property.
Code Outcome(Code trust_result, const TrustPass& pass) {
  const bool about_revocation = trust_result == kRevocationFailure ||
                                trust_result == kNoRevocationCheck ||
                                trust_result == kRevocationOffline;
  const bool asks =
      pass.revocation_checks != kRevokeNone && (pass.provider_flags & kRevocationCheckNone) == 0;
  return about_revocation && !asks ? kSuccess : trust_result;
}

Code OpenToVerify(const std::wstring& path, File& file) {
  std::uintptr_t handle = 0;
  const Code code =
      TheMachine().files.Open(path, kGenericRead, kShareAll, kOpenExisting, 0, handle);
  if (code == kSuccess) file.Adopt(handle);
  return code;
}

bool Covers(const simulation::EmbeddedSignature& signature, const std::string& content) {
  const std::vector<std::uint8_t> digest = simulation::DigestOf(L"SHA256", content);
  return std::equal(digest.begin(), digest.end(), signature.digest.begin(), signature.digest.end());
}

}  // namespace

struct CatalogState {
  File file;
  std::wstring signer;
  Code trust_result = kSuccess;
};

CatalogMember::CatalogMember() : state_(std::make_unique<CatalogState>()) {}
CatalogMember::~CatalogMember() = default;

Code VerifyEmbeddedSignature(const std::wstring& path, const TrustPass& pass,
                             std::wstring& signer) {
  signer.clear();
  if (const Code fault = TheMachine().faults.Next("VerifyEmbeddedSignature")) return fault;
  File file;
  if (OpenToVerify(path, file) != kSuccess) return kFileError;
  std::string content;
  simulation::FileProperties properties;
  if (const Code code = TheMachine().files.Inspect(file.handle(), content, properties)) return code;
  if (!properties.signature) return kNoSignature;
  if (!Covers(*properties.signature, content)) return kBadDigest;
  if (const Code code = Outcome(properties.trust_result, pass)) return code;
  signer = properties.signature->signer;
  return kSuccess;
}

Code FindCatalogMember(const std::wstring& path, const std::wstring& algorithm,
                       CatalogMember& member) {
  if (const Code fault = TheMachine().faults.Next("FindCatalogMember")) return fault;
  CatalogState found;
  if (const Code code = OpenToVerify(path, found.file)) return code;
  std::string content;
  simulation::FileProperties properties;
  if (const Code code = TheMachine().files.Inspect(found.file.handle(), content, properties)) {
    return code;
  }
  const std::vector<std::uint8_t> hash = simulation::DigestOf(algorithm, content);
  if (hash.empty()) return kInvalidParameter;
  const std::optional<std::wstring> signer = TheMachine().files.CatalogSigner(algorithm, hash);
  if (!signer) return kNoSuchHash;
  found.signer = *signer;
  found.trust_result = properties.trust_result;
  member.state() = std::move(found);
  return kSuccess;
}

Code VerifyCatalogSignature(const CatalogMember& member, const TrustPass& pass,
                            std::wstring& signer) {
  signer.clear();
  if (const Code fault = TheMachine().faults.Next("VerifyCatalogSignature")) return fault;
  const CatalogState& state = member.state();
  if (!state.file.is_open()) return kInvalidParameter;
  if (const Code code = Outcome(state.trust_result, pass)) return code;
  signer = state.signer;
  return kSuccess;
}

}  // namespace kestrelon::platform

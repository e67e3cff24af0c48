#include "platform/crypto.h"

#include "platform/windows/owned.h"

#include <bcrypt.h>
#include <wincrypt.h>

namespace kestrelon::platform {
namespace {

void CloseAlgorithm(BCRYPT_ALG_HANDLE algorithm) {
  BCryptCloseAlgorithmProvider(algorithm, 0);
}
void CloseHash(BCRYPT_HASH_HANDLE hash) {
  BCryptDestroyHash(hash);
}
void CloseKey(BCRYPT_KEY_HANDLE key) {
  BCryptDestroyKey(key);
}

using Algorithm = Owned<BCRYPT_ALG_HANDLE, CloseAlgorithm>;

Code CodeOfStatus(NTSTATUS status) {
  return static_cast<Code>(status);
}

// The interface takes what it only reads as pointers to changeable bytes.
PUCHAR Input(const void* bytes) {
  return const_cast<PUCHAR>(static_cast<const UCHAR*>(bytes));
}

}  // namespace

// In this order: a hash must be gone before its algorithm.
struct HashState {
  Algorithm algorithm;
  Owned<BCRYPT_HASH_HANDLE, CloseHash> hash;
};

Sha256::Sha256() : state_(std::make_unique<HashState>()) {}

Sha256::~Sha256() = default;

Code Sha256::Begin() {
  state_->hash.Reset();
  if (!state_->algorithm) {
    const NTSTATUS status = BCryptOpenAlgorithmProvider(state_->algorithm.Receive(),
                                                        BCRYPT_SHA256_ALGORITHM, nullptr, 0);
    if (status != 0) return CodeOfStatus(status);
  }
  return CodeOfStatus(
      BCryptCreateHash(state_->algorithm.get(), state_->hash.Receive(), nullptr, 0, nullptr, 0, 0));
}

Code Sha256::Add(const void* bytes, std::uint32_t size) {
  return CodeOfStatus(BCryptHashData(state_->hash.get(), Input(bytes), size, 0));
}

Code Sha256::Finish(Sha256Digest& digest) {
  Sha256Digest result{};
  const NTSTATUS status =
      BCryptFinishHash(state_->hash.get(), result.data(), static_cast<ULONG>(result.size()), 0);
  state_->hash.Reset();
  if (status == 0) digest = result;
  return CodeOfStatus(status);
}

Code VerifyEcdsaP256(std::span<const std::uint8_t> key_blob, const Sha256Digest& digest,
                     std::span<const std::uint8_t> signature) {
  Algorithm algorithm;
  NTSTATUS status =
      BCryptOpenAlgorithmProvider(algorithm.Receive(), BCRYPT_ECDSA_P256_ALGORITHM, nullptr, 0);
  if (status != 0) return CodeOfStatus(status);
  Owned<BCRYPT_KEY_HANDLE, CloseKey> key;
  status = BCryptImportKeyPair(algorithm.get(), nullptr, BCRYPT_ECCPUBLIC_BLOB, key.Receive(),
                               Input(key_blob.data()), static_cast<ULONG>(key_blob.size()), 0);
  if (status != 0) return CodeOfStatus(status);
  return CodeOfStatus(BCryptVerifySignature(
      key.get(), nullptr, Input(digest.data()), static_cast<ULONG>(digest.size()),
      Input(signature.data()), static_cast<ULONG>(signature.size()), 0));
}

Code DecodeBase64(std::string_view text, std::vector<std::uint8_t>& bytes) {
  const auto length = static_cast<DWORD>(text.size());
  // A length of 0 would have the platform look for the end of the text itself.
  DWORD size = 0;
  if (length != 0 && !CryptStringToBinaryA(text.data(), length, CRYPT_STRING_BASE64, nullptr, &size,
                                           nullptr, nullptr)) {
    return GetLastError();
  }
  std::vector<std::uint8_t> decoded(size);
  if (size != 0 && !CryptStringToBinaryA(text.data(), length, CRYPT_STRING_BASE64, decoded.data(),
                                         &size, nullptr, nullptr)) {
    return GetLastError();
  }
  bytes = std::move(decoded);
  return kSuccess;
}

}  // namespace kestrelon::platform

#include "platform/crypto.h"

#include "platform/windows/owned.h"

#include <bcrypt.h>

namespace kestrelon::platform {
namespace {

void CloseAlgorithm(BCRYPT_ALG_HANDLE algorithm) {
  BCryptCloseAlgorithmProvider(algorithm, 0);
}
void CloseHash(BCRYPT_HASH_HANDLE hash) {
  BCryptDestroyHash(hash);
}

Code CodeOfStatus(NTSTATUS status) {
  return static_cast<Code>(status);
}

}  // namespace

// In this order: a hash must be gone before its algorithm.
struct HashState {
  Owned<BCRYPT_ALG_HANDLE, CloseAlgorithm> algorithm;
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
  // The interface takes the input as a pointer to changeable bytes but only reads it.
  auto* const input = const_cast<PUCHAR>(static_cast<const UCHAR*>(bytes));
  return CodeOfStatus(BCryptHashData(state_->hash.get(), input, size, 0));
}

Code Sha256::Finish(Sha256Digest& digest) {
  Sha256Digest result{};
  const NTSTATUS status =
      BCryptFinishHash(state_->hash.get(), result.data(), static_cast<ULONG>(result.size()), 0);
  state_->hash.Reset();
  if (status == 0) digest = result;
  return CodeOfStatus(status);
}

}  // namespace kestrelon::platform

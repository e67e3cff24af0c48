#include "platform/crypto.h"

#include <openssl/evp.h>

#include "simulation/machine/machine.h"

namespace kestrelon::platform {
namespace {

using simulation::TheMachine;

// STATUS_INVALID_HANDLE: there is no hash that was begun and not finished.
constexpr Code kNoHash = 0xC0000008;
// STATUS_UNSUCCESSFUL, should OpenSSL fail.
constexpr Code kUnsuccessful = 0xC0000001;

struct FreeContext {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

}  // namespace

struct HashState {
  std::unique_ptr<EVP_MD_CTX, FreeContext> context;
};

Sha256::Sha256() : state_(std::make_unique<HashState>()) {}
Sha256::~Sha256() = default;

Code Sha256::Begin() {
  if (const Code fault = TheMachine().faults.Next("Sha256::Begin")) return fault;
  state_->context.reset(EVP_MD_CTX_new());
  const int begun = EVP_DigestInit_ex(state_->context.get(), EVP_sha256(), nullptr);
  return begun == 1 ? kSuccess : kUnsuccessful;
}

Code Sha256::Add(const void* bytes, std::uint32_t size) {
  if (const Code fault = TheMachine().faults.Next("Sha256::Add")) return fault;
  if (!state_->context) return kNoHash;
  return EVP_DigestUpdate(state_->context.get(), bytes, size) == 1 ? kSuccess : kUnsuccessful;
}

Code Sha256::Finish(Sha256Digest& digest) {
  if (const Code fault = TheMachine().faults.Next("Sha256::Finish")) return fault;
  if (!state_->context) return kNoHash;
  Sha256Digest result{};
  const int finished = EVP_DigestFinal_ex(state_->context.get(), result.data(), nullptr);
  state_->context.reset();
  if (finished != 1) return kUnsuccessful;
  digest = result;
  return kSuccess;
}

}  // namespace kestrelon::platform

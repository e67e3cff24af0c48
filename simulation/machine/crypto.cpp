#include "platform/crypto.h"

#include <openssl/core_names.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <algorithm>

#include "simulation/machine/machine.h"

namespace kestrelon::platform {
namespace {

using simulation::TheMachine;

// STATUS_INVALID_HANDLE: there is no hash that was begun and not finished.
constexpr Code kNoHash = 0xC0000008;
// STATUS_INVALID_PARAMETER: the blob holds no key.
constexpr Code kNoKey = 0xC000000D;
// STATUS_INVALID_SIGNATURE
constexpr Code kBadSignature = 0xC000A000;
// STATUS_UNSUCCESSFUL, should OpenSSL fail.
constexpr Code kUnsuccessful = 0xC0000001;

// One object of OpenSSL's, which `kFree` gives back.
template <auto kFree>
struct Freed {
  template <typename T>
  void operator()(T* object) const {
    kFree(object);
  }
};
template <typename T, auto kFree>
using Owned = std::unique_ptr<T, Freed<kFree>>;

using Key = Owned<EVP_PKEY, EVP_PKEY_free>;
using KeyContext = Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using Number = Owned<BIGNUM, BN_free>;

// Of a coordinate of a point, and of either half of a signature.
constexpr std::size_t kNumberSize = 32;

constexpr std::uint8_t kBlobHead[] = {'E', 'C', 'S', '1', kNumberSize, 0, 0, 0};

// The key of an ECCPUBLICBLOB; null when there is none in it, or its point is not on the curve.
Key ImportKey(std::span<const std::uint8_t> blob) {
  if (blob.size() != sizeof kBlobHead + 2 * kNumberSize ||
      !std::equal(std::begin(kBlobHead), std::end(kBlobHead), blob.begin())) {
    return nullptr;
  }
  std::vector<std::uint8_t> point = {POINT_CONVERSION_UNCOMPRESSED};
  point.insert(point.end(), blob.begin() + sizeof kBlobHead, blob.end());
  char group[] = "P-256";
  OSSL_PARAM values[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME, group, 0),
      OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size()),
      OSSL_PARAM_construct_end()};
  const KeyContext context(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
  EVP_PKEY* key = nullptr;
  if (EVP_PKEY_fromdata_init(context.get()) != 1 ||
      EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, values) != 1) {
    return nullptr;
  }
  return Key(key);
}

// The same signature in the form that OpenSSL takes; empty when it has another length.
std::vector<std::uint8_t> DerSignature(std::span<const std::uint8_t> signature) {
  if (signature.size() != 2 * kNumberSize) return {};
  Number r(BN_bin2bn(signature.data(), kNumberSize, nullptr));
  Number s(BN_bin2bn(signature.data() + kNumberSize, kNumberSize, nullptr));
  const Owned<ECDSA_SIG, ECDSA_SIG_free> pair(ECDSA_SIG_new());
  if (ECDSA_SIG_set0(pair.get(), r.get(), s.get()) != 1) return {};
  // The pair has taken them over.
  (void)r.release();
  (void)s.release();
  std::vector<std::uint8_t> der(static_cast<std::size_t>(i2d_ECDSA_SIG(pair.get(), nullptr)));
  std::uint8_t* end = der.data();
  i2d_ECDSA_SIG(pair.get(), &end);
  return der;
}

constexpr std::string_view kBase64Letters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Whether the text, from a first padding on, closes a group that has so many letters before it.
// What stands behind a group that is closed is not looked at.
bool ClosesGroup(std::string_view padding, std::size_t letters) {
  if (letters == 1) return false;
  return letters != 2 || padding.substr(0, 2) == "==";
}

}  // namespace

struct HashState {
  Owned<EVP_MD_CTX, EVP_MD_CTX_free> context;
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

Code VerifyEcdsaP256(std::span<const std::uint8_t> key_blob, const Sha256Digest& digest,
                     std::span<const std::uint8_t> signature) {
  if (const Code fault = TheMachine().faults.Next("VerifyEcdsaP256")) return fault;
  const Key key = ImportKey(key_blob);
  if (!key) return kNoKey;
  const std::vector<std::uint8_t> der = DerSignature(signature);
  const KeyContext context(EVP_PKEY_CTX_new(key.get(), nullptr));
  if (EVP_PKEY_verify_init(context.get()) != 1) return kUnsuccessful;
  const bool valid = !der.empty() && EVP_PKEY_verify(context.get(), der.data(), der.size(),
                                                     digest.data(), digest.size()) == 1;
  return valid ? kSuccess : kBadSignature;
}

Code DecodeBase64(std::string_view text, std::vector<std::uint8_t>& bytes) {
  if (const Code fault = TheMachine().faults.Next("DecodeBase64")) return fault;
  std::string dense(text);
  std::erase_if(dense, [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; });
  std::vector<std::uint8_t> decoded;
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < dense.size(); ++i) {
    if (dense[i] == '=' && ClosesGroup(std::string_view(dense).substr(i), i % 4)) break;
    const std::size_t value = kBase64Letters.find(dense[i]);
    if (value == std::string_view::npos) return kInvalidData;
    bits = bits << 6 | static_cast<std::uint32_t>(value);
    // Each letter but the first of a group completes a byte.
    if (i % 4 != 0) decoded.push_back(static_cast<std::uint8_t>(bits >> (6 - 2 * (i % 4))));
  }
  bytes = std::move(decoded);
  return kSuccess;
}

}  // namespace kestrelon::platform

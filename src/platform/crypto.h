// Hashing, verification of signatures, base64.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "platform/codes.h"

namespace kestrelon::platform {

using Sha256Digest = std::array<std::uint8_t, 32>;

struct HashState;

// A SHA-256 computed piece by piece: Begin, Add as often as needed, Finish.
class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  [[nodiscard]] Code Begin();
  [[nodiscard]] Code Add(const void* bytes, std::uint32_t size);
  [[nodiscard]] Code Finish(Sha256Digest& digest);

 private:
  std::unique_ptr<HashState> state_;
};

// Whether the owner of a key signed a digest, by ECDSA over P-256. The key is an ECCPUBLICBLOB: its
// magic, the length of a coordinate as 32 bits, X and Y; the signature r then s. All of the four
// numbers have 32 bytes, big-endian. Anything but success means no: a key that is none, such as a
// point off the curve, fails too. Any thread.
[[nodiscard]] Code VerifyEcdsaP256(std::span<const std::uint8_t> key_blob,
                                   const Sha256Digest& digest,
                                   std::span<const std::uint8_t> signature);

// The bytes of a base64 text, which are untouched on failure. White space anywhere and missing
// padding are tolerated, as the platform does; another character is kInvalidData. Any thread.
[[nodiscard]] Code DecodeBase64(std::string_view text, std::vector<std::uint8_t>& bytes);

}  // namespace kestrelon::platform

// Hashing.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

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

}  // namespace kestrelon::platform

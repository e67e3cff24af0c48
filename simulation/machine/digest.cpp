#include "simulation/machine/digest.h"

#include <openssl/evp.h>

namespace simulation {

std::vector<std::uint8_t> DigestOf(const std::wstring& algorithm, std::string_view bytes) {
  const EVP_MD* method = nullptr;
  if (algorithm == L"SHA256") method = EVP_sha256();
  if (algorithm == L"SHA1") method = EVP_sha1();
  if (method == nullptr) return {};
  std::vector<std::uint8_t> digest(EVP_MAX_MD_SIZE);
  unsigned size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, method, nullptr) != 1) return {};
  digest.resize(size);
  return digest;
}

}  // namespace simulation

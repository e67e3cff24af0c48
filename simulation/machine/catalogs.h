// The machine's security catalogs: hashes of files that are signed without carrying a signature.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace simulation {

// Guarded by the guard of the file system that owns it.
class Catalogs {
 public:
  void Add(const std::wstring& signer, const std::wstring& algorithm,
           const std::vector<std::uint8_t>& hash);

  // The signer of the first catalog that holds the hash.
  std::optional<std::wstring> SignerOf(const std::wstring& algorithm,
                                       const std::vector<std::uint8_t>& hash) const;

 private:
  struct Member {
    std::wstring signer;
    std::wstring algorithm;
    std::vector<std::uint8_t> hash;
  };

  std::vector<Member> members_;
};

}  // namespace simulation

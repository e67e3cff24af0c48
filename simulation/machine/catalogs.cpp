#include "simulation/machine/catalogs.h"

namespace simulation {

void Catalogs::Add(const std::wstring& signer, const std::wstring& algorithm,
                   const std::vector<std::uint8_t>& hash) {
  members_.push_back({signer, algorithm, hash});
}

std::optional<std::wstring> Catalogs::SignerOf(const std::wstring& algorithm,
                                               const std::vector<std::uint8_t>& hash) const {
  for (const Member& member : members_) {
    if (member.algorithm == algorithm && member.hash == hash) return member.signer;
  }
  return std::nullopt;
}

}  // namespace simulation

// What a file is: whether it exists, who signed it, what its hash is.
#pragma once

#include <string>

namespace kestrelon {

struct FileIdentity {
  bool exists = false;   // a regular file is there
  bool signed_ = false;  // its signature was verified
  std::wstring signer;   // display name of the signer, empty if not signed
  std::wstring sha256;   // 64 lower-case hexadecimal digits, empty if it couldn't be computed

  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

// The identity of a file. "System" stands for the kernel's image. Answers are cached by size, write
// time and change number; a miss hashes and verifies the file, which may take seconds. Any thread.
[[nodiscard]] FileIdentity IdentityFor(const std::wstring& path);

// Makes the next IdentityFor of each cached file in `directory` (lower case) verify it anew.
void MarkIdentitiesStale(const std::wstring& directory);

}  // namespace kestrelon

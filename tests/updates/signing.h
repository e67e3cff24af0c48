// Signatures of update manifests as the vendor makes them: by OpenSSL's command line, with the
// development keys beside this file.
#pragma once

#include <string>

namespace kestrelon {

inline constexpr const char* kFirstKey = "kestrelon-update";
inline constexpr const char* kBackupKey = "kestrelon-update-backup";

// What latest.json.sig holds for a manifest, without a line end; each call makes another. Any other
// key id stands for one that the product does not know, and is signed for with the first key. Fails
// the case, and gives an empty text, when OpenSSL fails.
std::string SignManifest(const std::string& manifest, const std::string& key_id = kFirstKey);

}  // namespace kestrelon

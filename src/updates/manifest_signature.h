// The detached signature of the update manifest: "ES256", the key's id and the signature in
// base64, on one line.
#pragma once

#include <string>
#include <string_view>

namespace kestrelon {

// Whether the vendor signed exactly these bytes, with either of the keys of this build. False with
// a sentence in `error` otherwise. Any thread.
[[nodiscard]] bool VerifyManifestSignature(std::string_view manifest_bytes,
                                           std::string_view signature_text, std::wstring& error);

}  // namespace kestrelon

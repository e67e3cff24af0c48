// Any text as the signature of a manifest: none is accepted but those that were made with the keys
// of development, of which each key has made one here.
#include <cstdint>
#include <string_view>

#include "tests/fuzz/property.h"
#include "updates/manifest_signature.h"

namespace kestrelon {
namespace {

constexpr std::string_view kManifest = "signed";
constexpr std::string_view kSigned[] = {
    "ES256 kestrelon-update "
    "Ob271zMt5YL0MA01PVK3Ay6L0RvASPwAUnk20PSAasMAkz2yZcIrvrpFxQP1/a/gOAOZb959Dt4ktB1JijyihQ==",
    "ES256 kestrelon-update-backup "
    "o2Fy4drG1JIIv6ryP/V/ouljEzS0L0yvp0NZ1Rud+BSw4LezNUrO33A8oOxATweOcF73eqrapuiLlf4PA7KC4w=="};

bool IsSigned(std::string_view text) {
  text = text.substr(0, text.find_last_not_of("\n\r ") + 1);
  // Of the last letter, which stands before the padding, base64 uses but two bits: the same bytes
  // have 16 texts.
  constexpr std::size_t kEnd = 3;
  for (const std::string_view right : kSigned) {
    const std::string_view rest = right.substr(0, right.size() - kEnd);
    if (text.size() == right.size() && text.starts_with(rest) && text.ends_with("==")) return true;
  }
  return false;
}

void CheckText(std::string_view text) {
  std::wstring error;
  if (VerifyManifestSignature(kManifest, text, error)) {
    PROPERTY(error.empty() && IsSigned(text));
  } else {
    PROPERTY(!error.empty());
  }
  PROPERTY(!VerifyManifestSignature("Signed", text, error));
}

}  // namespace
}  // namespace kestrelon

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  for (const std::string_view text : kestrelon::kSigned) {
    std::wstring error;
    PROPERTY(kestrelon::VerifyManifestSignature(kestrelon::kManifest, text, error));
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrelon::CheckText({reinterpret_cast<const char*>(data), size});
  return 0;
}

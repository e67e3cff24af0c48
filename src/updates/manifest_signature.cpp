// One small check for each link of the verification, in a fixed order: the first that fails ends it
// with its sentence. Nothing of the manifest is looked at but its bytes as a whole.
#include "updates/manifest_signature.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "deployment.h"
#include "platform/crypto.h"

namespace kestrelon {
namespace {

using platform::kSuccess;

// Two keys, so that one can be withdrawn: a build with another first key still accepts what the
// second one signs. Both count the same.
struct UpdateKey {
  std::string_view id;
  UpdateKeyBytes point;
};

constexpr UpdateKey kUpdateKeys[] = {{"kestrelon-update", kUpdateKey},
                                     {"kestrelon-update-backup", kUpdateBackupKey}};

constexpr std::string_view kAlgorithm = "ES256";
constexpr std::string_view kBase64Letters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// r and s of 32 bytes each: 86 letters, of which the last stands for 2 bits, and padding.
constexpr std::size_t kSignatureSize = 64;
constexpr std::size_t kSignatureLetters = 86;
constexpr std::string_view kSignaturePadding = "==";

// What is given, then what each check has found for the next.
struct Verification {
  std::string_view manifest_bytes;
  std::string_view signature_text;

  std::string_view key_id{};
  std::string_view base64{};
  const UpdateKey* key = nullptr;
  std::vector<std::uint8_t> signature{};
  platform::Sha256Digest digest{};
};

// A check gives the sentence of its failure, or null.
using Check = const wchar_t* (*)(Verification& verification);

const wchar_t* SplitText(Verification& verification) {
  std::string_view text = verification.signature_text;
  text = text.substr(0, text.find_last_not_of("\n\r ") + 1);
  const std::size_t first = text.find(' ');
  const std::size_t second = first == std::string_view::npos ? first : text.find(' ', first + 1);
  if (second == std::string_view::npos || text.substr(0, first) != kAlgorithm) {
    return L"the manifest signature has an unknown format";
  }
  verification.key_id = text.substr(first + 1, second - first - 1);
  verification.base64 = text.substr(second + 1);
  return nullptr;
}

const wchar_t* FindKey(Verification& verification) {
  const auto* const key = std::ranges::find(kUpdateKeys, verification.key_id, &UpdateKey::id);
  if (key == std::end(kUpdateKeys)) return L"the manifest is signed with an unknown key";
  verification.key = key;
  return nullptr;
}

// The platform also reads texts with white space or without padding, which no signer writes: the
// characters are tested here.
const wchar_t* DecodeSignature(Verification& verification) {
  const std::string_view text = verification.base64;
  const bool well_formed = text.size() == kSignatureLetters + kSignaturePadding.size() &&
                           text.find_first_not_of(kBase64Letters) == kSignatureLetters &&
                           text.ends_with(kSignaturePadding);
  if (!well_formed || platform::DecodeBase64(text, verification.signature) != kSuccess ||
      verification.signature.size() != kSignatureSize) {
    return L"the manifest signature is damaged";
  }
  return nullptr;
}

const wchar_t* HashManifest(Verification& verification) {
  const std::string_view bytes = verification.manifest_bytes;
  platform::Sha256 hash;
  // What 32 bits can't count would be hashed in part.
  if (bytes.size() > UINT32_MAX || hash.Begin() != kSuccess ||
      hash.Add(bytes.data(), static_cast<std::uint32_t>(bytes.size())) != kSuccess ||
      hash.Finish(verification.digest) != kSuccess) {
    return L"cannot compute SHA-256";
  }
  return nullptr;
}

const wchar_t* VerifyDigest(Verification& verification) {
  // An ECCPUBLICBLOB: its magic and the size of a coordinate, then the point.
  std::vector<std::uint8_t> blob = {'E', 'C', 'S', '1', 32, 0, 0, 0};
  blob.insert(blob.end(), verification.key->point.begin(), verification.key->point.end());
  if (platform::VerifyEcdsaP256(blob, verification.digest, verification.signature) != kSuccess) {
    return L"the manifest signature is not valid";
  }
  return nullptr;
}

constexpr Check kChecks[] = {SplitText, FindKey, DecodeSignature, HashManifest, VerifyDigest};

}  // namespace

bool VerifyManifestSignature(std::string_view manifest_bytes, std::string_view signature_text,
                             std::wstring& error) {
  Verification verification{manifest_bytes, signature_text};
  for (const Check check : kChecks) {
    if (const wchar_t* const problem = check(verification)) {
      error = problem;
      return false;
    }
  }
  return true;
}

}  // namespace kestrelon

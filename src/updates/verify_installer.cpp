// A row of checks, each of which gives the sentence of what it finds wrong. None trusts another:
// the hash ties the file to the signed manifest, the signer to the vendor, the version resource to
// the version that the user was told of.
#include "updates/verify_installer.h"

#include <cstdint>
#include <vector>

#include "base/format.h"
#include "core/error_text.h"
#include "core/version.h"
#include "platform/files.h"
#include "platform/resources.h"

namespace kestrelon {
namespace {

// A download between the checks.
struct Candidate {
  const Download& download;
  const UpdateManifest& manifest;
  std::wstring file;      // where it lies now
  FileIdentity identity;  // under its final name
};

std::wstring CheckHash(Candidate& candidate) {
  if (candidate.download.sha256 == candidate.manifest.sha256) return {};
  return L"the downloaded file does not match the signed list of versions (SHA-256)";
}

std::wstring GiveFinalName(Candidate& candidate) {
  const Download& download = candidate.download;
  if (const platform::Code code =
          platform::RenameFile(download.part, download.path, platform::kReplaceExisting)) {
    return L"cannot rename the download: " + ErrorText(code);
  }
  candidate.file = download.path;
  return {};
}

std::wstring CheckSigner(Candidate& candidate) {
  candidate.identity = IdentityFor(candidate.file);
  if (IsSignedByPublisher(candidate.identity)) return {};
  if (candidate.identity.signer.empty()) {
    return Format(L"the installer has no valid digital signature of %s", kInstallerPublisher);
  }
  return Format(L"the installer is signed by %s, not by %s", candidate.identity.signer,
                kInstallerPublisher);
}

std::wstring CheckUnchanged(Candidate& candidate) {
  if (candidate.identity.sha256 == candidate.download.sha256) return {};
  return L"the installer changed while it was being checked";
}

// The version of a file in the form that tools show, and its build.
struct FileVersion {
  std::wstring version;
  std::uint32_t build = 0;
};

// Reads VS_FIXEDFILEINFO: the signature, the layout's version, then the file's version in two
// halves of two words, all little-endian.
bool ReadFileVersion(const std::wstring& path, FileVersion& version) {
  constexpr std::uint32_t kSignature = 0xFEEF04BD;
  constexpr std::size_t kSize = 52;
  platform::VersionBlock block;
  std::vector<std::uint8_t> bytes;
  if (platform::LoadVersionBlock(path, block) != platform::kSuccess) return false;
  if (!platform::VersionBytes(block, L"\\", bytes) || bytes.size() < kSize) return false;
  const auto word = [&bytes](std::size_t at) {
    return bytes[at] | std::uint32_t{bytes[at + 1]} << 8;
  };
  if ((word(0) | word(2) << 16) != kSignature) return false;
  version.version = Format(L"%u.%u.%u", word(10), word(8), word(14));
  version.build = word(12);
  return true;
}

std::wstring CheckVersion(Candidate& candidate) {
  const UpdateManifest& manifest = candidate.manifest;
  FileVersion found;
  if (ReadFileVersion(candidate.file, found) && found.version == manifest.version &&
      found.build == static_cast<std::uint32_t>(manifest.build)) {
    return {};
  }
  return Format(L"the installer is not version %s (build %d)", manifest.version, manifest.build);
}

std::wstring CheckNewer(Candidate& candidate) {
  if (candidate.manifest.build > kBuild) return {};
  return L"an older or the same version is never installed";
}

struct Check {
  std::wstring (*problem)(Candidate& candidate);  // empty when there is none
  bool condemns;                                  // a problem is one of the file's own
};

constexpr Check kChecks[] = {{&CheckHash, true},      {&GiveFinalName, false}, {&CheckSigner, true},
                             {&CheckUnchanged, true}, {&CheckVersion, true},   {&CheckNewer, true}};

}  // namespace

bool IsSignedByPublisher(const FileIdentity& identity) {
  return identity.signed_ && identity.signer == kInstallerPublisher;
}

bool VerifyInstaller(const Download& download, const UpdateManifest& manifest,
                     std::wstring& error) {
  Candidate candidate{download, manifest, download.part, {}};
  for (const Check& check : kChecks) {
    const std::wstring problem = check.problem(candidate);
    if (problem.empty()) continue;
    if (check.condemns) (void)platform::RemoveFile(candidate.file);
    error = problem;
    return false;
  }
  return true;
}

}  // namespace kestrelon

// The proofs that a downloaded file is the installer which the vendor published.
#pragma once

#include <string>

#include "identity/file_identity.h"
#include "updates/update_manifest.h"

namespace kestrelon {

// Who signs installers.
inline constexpr const wchar_t* kInstallerPublisher = L"TARGON HELVERIK Ltd. Co.";

[[nodiscard]] bool IsSignedByPublisher(const FileIdentity& identity);

// A file as it came from the update host.
struct Download {
  std::wstring part;    // where it lies under the name of an unfinished file
  std::wstring path;    // where an installer lies that may be run
  std::wstring sha256;  // of the bytes as they came in, in lower-case digits; empty if unknown
};

// Tests that a download is the installer of the manifest, and newer than this build; its final name
// is given to it on the way, once its content is the one that the vendor signed for. False at the
// first proof that fails, with its sentence in `error`: the file is deleted then, or keeps the name
// of an unfinished one when it can't be renamed. May take seconds.
[[nodiscard]] bool VerifyInstaller(const Download& download, const UpdateManifest& manifest,
                                   std::wstring& error);

}  // namespace kestrelon

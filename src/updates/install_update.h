// One installation, up to where the helper takes over.
#pragma once

#include <cstdint>
#include <string>

#include "updates/update_manifest.h"

namespace kestrelon {

// Downloads the installer, proves step by step that it is the one the manifest names, and starts
// the helper, unless the service is stopping. Any failure is told in state and logs, leaves no
// unverified file that could be run, and can be tried again. Runs on the update thread. `session`
// is where the window is to be opened again, kNoSession for nowhere.
void InstallThread(const UpdateManifest& manifest, std::uint32_t session,
                   const std::wstring& language);

// A language for the installer's command line: 1 to 8 lower-case letters, whatever was asked for.
[[nodiscard]] std::wstring CleanLanguage(const std::wstring& language);

}  // namespace kestrelon

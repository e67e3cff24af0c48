// The rules that approved modules add to the user's.
#pragma once

#include <string>
#include <vector>

#include "config/config.h"
#include "modules/module_manifest.h"

namespace kestrelon {

// The rules for what a manifest asks for, each for the program at `path` alone: for each network
// entry the outbound rule, then the inbound one, as far as it has them. Local and remote port are
// both the entry's one port.
[[nodiscard]] std::vector<RuleEntry> ModuleRules(const ModuleManifest& manifest,
                                                 const std::wstring& path);

// Looks at each module that is turned on: appends to `fingerprint` what its file is, to `warnings`
// why it stays off if it does, and to `rules` its rules if it is active. May hash and verify files.
void CompileModuleRules(const Config& config, std::vector<std::wstring>& warnings,
                        std::wstring& fingerprint, std::vector<RuleEntry>& rules);

}  // namespace kestrelon

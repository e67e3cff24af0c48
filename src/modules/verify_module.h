// What is known of a module now: whether its file is the one that was shipped, and what it asks
// for. Nothing is remembered between two looks, because the file may change in between.
#pragma once

#include <string>

#include "config/config.h"
#include "modules/module_manifest.h"

namespace kestrelon {

struct ModuleStatus {
  std::wstring id;    // as asked for
  std::wstring path;  // full path of the file; empty for an unknown id
  bool installed = false;
  bool verified = false;  // the pinned file, validly signed by the pinned publisher
  std::wstring signer;    // of a valid signature
  bool manifest_valid = false;
  ModuleManifest manifest;  // when manifest_valid
  std::wstring grant;       // ModuleGrantText when manifest_valid, else empty
  std::wstring problem;     // a sentence for the user; empty when nothing is wrong
};

// Looks at a module's file. May hash and verify it, which takes a while when it has changed since
// the last look. Any thread.
[[nodiscard]] ModuleStatus VerifyModule(const std::wstring& id);

// The first entry for a module in a configuration, without regard to case; null if there is none.
[[nodiscard]] const ModuleEntry* FindModuleEntry(const Config& config, const std::wstring& id);

// Whether a module may run now: it is turned on, its file is the right one, and what it asks for is
// exactly what the user approved.
[[nodiscard]] bool ModuleIsActive(const Config& config, const ModuleStatus& status);

}  // namespace kestrelon

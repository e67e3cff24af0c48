// The modules that this build knows, and the files that were shipped with it. Nobody adds to them
// at run time.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrelon {

struct KnownModule {
  std::wstring id;
  std::wstring relative_path;  // from the directory of the service's executable
};

struct PinnedModule {
  std::wstring id;
  std::wstring sha256;     // of the whole file, hexadecimal
  std::wstring publisher;  // who signed it
};

// In their fixed order; made once, never changed.
[[nodiscard]] const std::vector<KnownModule>& KnownModules();
[[nodiscard]] const std::vector<PinnedModule>& PinnedModules();

// The row with exactly this id; null if there is none.
[[nodiscard]] const KnownModule* FindKnownModule(std::wstring_view id);

// The full path of a module's file.
[[nodiscard]] std::wstring ModulePath(const KnownModule& module);

}  // namespace kestrelon

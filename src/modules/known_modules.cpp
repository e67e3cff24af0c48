#include "modules/known_modules.h"

#include <algorithm>

#include "deployment.h"
#include "identity/paths.h"

namespace kestrelon {
namespace {

constexpr const wchar_t* kLanMessages = L"lan-messages";

}  // namespace

const std::vector<KnownModule>& KnownModules() {
  static const std::vector<KnownModule> modules = {
      {kLanMessages, L"modules\\lan-messages\\KSMessages.exe"},
  };
  return modules;
}

const std::vector<PinnedModule>& PinnedModules() {
  static const std::vector<PinnedModule> modules = {
      {kLanMessages, kModuleSha256, kModulePublisher},
  };
  return modules;
}

const KnownModule* FindKnownModule(std::wstring_view id) {
  const std::vector<KnownModule>& modules = KnownModules();
  const auto found = std::ranges::find(modules, id, &KnownModule::id);
  return found == modules.end() ? nullptr : &*found;
}

std::wstring ModulePath(const KnownModule& module) {
  return ExecutableDirectory() + L"\\" + module.relative_path;
}

}  // namespace kestrelon

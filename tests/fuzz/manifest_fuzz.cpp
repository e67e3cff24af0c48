// Any text as a module's manifest: refused with a sentence and without effect, or taken with a
// grant that depends on nothing but what it asks for.
#include <algorithm>
#include <cstdint>
#include <string_view>

#include "base/text.h"
#include "modules/module_manifest.h"
#include "tests/fuzz/property.h"

namespace kestrelon {
namespace {

// As many pieces as the manifest asks for things, whatever their order.
void CheckGrant(ModuleManifest manifest) {
  const std::wstring grant = ModuleGrantText(manifest);
  const std::size_t asked = manifest.permissions.size() + manifest.network.size();
  PROPERTY(grant.empty() ? asked == 0 : SplitAt(grant, L"|").size() == asked);
  std::ranges::reverse(manifest.network);
  PROPERTY(ModuleGrantText(manifest) == grant);
}

void CheckText(std::string_view text) {
  ModuleManifest manifest;
  std::wstring error;
  const bool accepted = ParseModuleManifest(text, manifest, &error);
  PROPERTY(accepted ? text.size() <= kLongestManifest
                    : !error.empty() && manifest == ModuleManifest());
  if (!accepted) return;
  for (const ModuleNetworkEntry& entry : manifest.network) {
    PROPERTY(entry.port >= 1 && entry.port <= 65535 && !entry.why.empty());
  }
  CheckGrant(std::move(manifest));
}

}  // namespace
}  // namespace kestrelon

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrelon::CheckText({reinterpret_cast<const char*>(data), size});
  return 0;
}

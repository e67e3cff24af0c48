#include "updates/installer_name.h"

#include <algorithm>

#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr std::wstring_view kExtension = L".exe";
// What the platform allows in no name, and "%", behind which paths are expanded.
constexpr std::wstring_view kForbidden = L"\\/:*?\"<>|%";

}  // namespace

std::wstring InstallerName(std::wstring_view url) {
  return std::wstring(url.substr(url.rfind(L'/') + 1));
}

bool IsInstallerName(std::wstring_view name) {
  if (name.size() < kExtension.size()) return false;
  return platform::EqualIgnoringCase(name.substr(name.size() - kExtension.size()), kExtension) &&
         name.find_first_of(kForbidden) == std::wstring_view::npos &&
         std::ranges::none_of(name, [](wchar_t c) { return c < L' '; }) &&
         !platform::EqualIgnoringCase(name, kUpdateHelperName);
}

}  // namespace kestrelon

#include "config/app_reference.h"

#include "base/text.h"
#include "identity/paths.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr std::wstring_view kServicePrefix = L"service:";
constexpr std::wstring_view kPackagePrefix = L"package:";

// A prefix alone names nothing: something must follow it.
bool IsReference(std::wstring_view text, std::wstring_view prefix) {
  return text.size() > prefix.size() && platform::StartsWithIgnoringCase(text, prefix);
}

std::wstring NameBehind(std::wstring_view text, std::wstring_view prefix) {
  if (!IsReference(text, prefix)) return {};
  return std::wstring(Trim(text.substr(prefix.size())));
}

}  // namespace

bool IsServiceRef(std::wstring_view text) {
  return IsReference(text, kServicePrefix);
}

std::wstring ServiceRefName(std::wstring_view text) {
  return NameBehind(text, kServicePrefix);
}

bool IsPackageRef(std::wstring_view text) {
  return IsReference(text, kPackagePrefix);
}

std::wstring PackageRefName(std::wstring_view text) {
  return NameBehind(text, kPackagePrefix);
}

bool IsSystemApp(std::wstring_view text) {
  return platform::EqualIgnoringCase(text, L"System");
}

std::wstring KernelImagePath() {
  return ExpandPath(L"%SystemRoot%\\System32\\ntoskrnl.exe");
}

}  // namespace kestrelon

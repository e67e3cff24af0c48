#include "identity/service_info.h"

#include <string_view>
#include <utility>

#include "base/text.h"
#include "identity/paths.h"
#include "platform/codes.h"
#include "platform/security.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr std::wstring_view kExecutableEnding = L".exe";
constexpr std::wstring_view kSystemRootPrefix = L"\\systemroot\\";
constexpr std::wstring_view kSystem32Prefix = L"system32\\";
constexpr std::wstring_view kObjectPrefix = L"\\??\\";

constexpr std::uint32_t kQueryService =
    platform::kServiceQueryConfig | platform::kServiceQueryStatus;

// The first word of a command line. Without quotes a path may hold blanks, so it ends at its
// ".exe"; only what has none ends at a blank.
std::wstring FirstWord(std::wstring_view line) {
  if (line.starts_with(L'"')) {
    line.remove_prefix(1);
    return std::wstring(line.substr(0, line.find(L'"')));
  }
  const std::size_t ending = platform::LowerCase(line).find(kExecutableEnding);
  if (ending != std::wstring::npos) {
    return std::wstring(line.substr(0, ending + kExecutableEnding.size()));
  }
  return std::wstring(line.substr(0, line.find(L' ')));
}

// A path as the kernel and its loader write it, as a Win32 path.
std::wstring WithoutKernelPrefix(const std::wstring& path) {
  if (platform::StartsWithIgnoringCase(path, kSystemRootPrefix)) {
    return ExpandPath(L"%SystemRoot%") + path.substr(kSystemRootPrefix.size() - 1);
  }
  if (platform::StartsWithIgnoringCase(path, kSystem32Prefix)) {
    return ExpandPath(L"%SystemRoot%") + L"\\" + path;
  }
  if (path.starts_with(kObjectPrefix)) return path.substr(kObjectPrefix.size());
  return path;
}

// Fills `info` from an open service; false when its settings can't be read, `info` is then as it
// was. A SID, SID type or state that can't be read stays empty.
bool ResolveCommandLine(const platform::ServiceHandle& service, const std::wstring& name,
                        ServiceInfo& info) {
  platform::ServiceSettings settings;
  if (platform::QueryServiceSettings(service, settings) != platform::kSuccess) return false;

  ServiceInfo resolved;
  resolved.name = name;
  resolved.display_name = settings.display_name;
  resolved.image_path = ExecutableOfCommandLine(settings.binary_path);
  if (platform::QueryServiceSidType(service, resolved.sid_type) != platform::kSuccess) {
    resolved.sid_type = 0;
  }
  resolved.sid = ResolveServiceSid(name);
  if (platform::QueryServiceState(service, resolved.state) != platform::kSuccess) {
    resolved.state = 0;
  }
  info = std::move(resolved);
  return true;
}

}  // namespace

std::wstring ResolveServiceSid(const std::wstring& name) {
  std::wstring sid;
  if (platform::SidOfAccount(L"NT SERVICE\\" + name, sid) != platform::kSuccess) return {};
  return sid;
}

std::wstring ExecutableOfCommandLine(std::wstring_view command_line) {
  return WithoutKernelPrefix(ExpandPath(FirstWord(Trim(command_line))));
}

bool ResolveService(const std::wstring& name, ServiceInfo& info) {
  platform::ServiceHandle manager;
  platform::ServiceHandle service;
  return platform::OpenServiceManager(platform::kManagerConnect, manager) == platform::kSuccess &&
         platform::OpenServiceByName(manager, name, kQueryService, service) == platform::kSuccess &&
         ResolveCommandLine(service, name, info);
}

std::vector<ServiceInfo> ListServices() {
  std::vector<ServiceInfo> services;
  platform::ServiceHandle manager;
  if (platform::OpenServiceManager(platform::kManagerConnect | platform::kManagerEnumerate,
                                   manager) != platform::kSuccess) {
    return services;
  }
  std::vector<std::wstring> names;
  if (platform::EnumerateServices(manager, platform::kServiceTypeWin32, platform::kServiceStateAll,
                                  names) != platform::kSuccess) {
    return services;
  }
  services.reserve(names.size());
  for (const std::wstring& name : names) {
    platform::ServiceHandle service;
    ServiceInfo info;
    if (platform::OpenServiceByName(manager, name, kQueryService, service) == platform::kSuccess &&
        ResolveCommandLine(service, name, info)) {
      services.push_back(std::move(info));
    }
  }
  return services;
}

}  // namespace kestrelon

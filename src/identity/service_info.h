// What is known about the machine's services. May block on the service manager.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/services.h"

namespace kestrelon {

struct ServiceInfo {
  std::wstring name;  // key name
  std::wstring display_name;
  std::wstring image_path;     // full path of its executable
  std::wstring sid;            // service SID as text, or empty
  std::uint32_t sid_type = 0;  // 0: the service has no SID in its token
  std::uint32_t state = 0;     // as the service manager counts; 0 when unknown
};

// The SID of "NT SERVICE\NAME"; empty on any failure.
[[nodiscard]] std::wstring ResolveServiceSid(const std::wstring& name);

// The executable named by a service's command line: quotes, arguments, environment variables and
// kernel-style prefixes taken off.
[[nodiscard]] std::wstring ExecutableOfCommandLine(std::wstring_view command_line);

// What is known of the service of a name. False when it can't be opened or its settings can't be
// read, `info` is then as it was. A SID, SID type or state that can't be read stays empty.
[[nodiscard]] bool ResolveService(const std::wstring& name, ServiceInfo& info);

// Every Win32 service; those that can't be opened are left out.
[[nodiscard]] std::vector<ServiceInfo> ListServices();

}  // namespace kestrelon

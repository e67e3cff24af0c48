// The services that share the process svchost.exe.
#pragma once

#include <string>
#include <vector>

namespace kestrelon {

struct HostedService {
  std::wstring name;  // key name
  std::wstring sid;   // its SID as text, never empty
};

// All services that run inside svchost.exe and have a SID in its token, by which they can be told
// apart. Listing them is slow, so the answer is kept for ten minutes. Any thread; takes a leaf
// guard.
[[nodiscard]] std::vector<HostedService> HostedServices();

}  // namespace kestrelon

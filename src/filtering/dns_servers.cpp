#include "filtering/dns_servers.h"

#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/network.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

// GAA_FLAG_SKIP_ANYCAST, _SKIP_MULTICAST and _SKIP_FRIENDLY_NAME: none of it is asked for.
constexpr std::uint32_t kSkipUnused = 0x26;
constexpr std::uint32_t kOperStatusUp = 1;

// Site-local addresses that the platform lists as servers where none is configured.
constexpr std::wstring_view kSiteLocalPrefix = L"fec0:";

bool Holds(const std::vector<std::wstring_view>& servers, std::wstring_view server) {
  for (const std::wstring_view known : servers) {
    if (platform::EqualIgnoringCase(known, server)) return true;
  }
  return false;
}

}  // namespace

std::wstring CollectDnsServers() {
  std::vector<platform::Adapter> adapters;
  if (platform::ListAdapters(kSkipUnused, adapters) != platform::kSuccess) return {};

  std::vector<std::wstring_view> servers;
  std::wstring joined;
  for (const platform::Adapter& adapter : adapters) {
    if (adapter.oper_status != kOperStatusUp) continue;
    for (const platform::DnsServer& server : adapter.dns_servers) {
      const std::wstring_view text(server.text);
      const std::wstring_view address = text.substr(0, text.find(L'%'));
      if (address.empty() || address.starts_with(kSiteLocalPrefix)) continue;
      if (Holds(servers, address)) continue;
      servers.push_back(address);
      if (!joined.empty()) joined += L", ";
      joined += address;
    }
  }
  return joined;
}

}  // namespace kestrelon

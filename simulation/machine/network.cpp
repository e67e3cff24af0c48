#include "simulation/machine/network.h"

#include <arpa/inet.h>

#include "base/text.h"
#include "platform/network.h"
#include "simulation/machine/machine.h"

namespace simulation {

using kestrelon::platform::Adapter;

void Network::SetDnsServers(const std::vector<std::wstring>& servers) {
  Adapter adapter;
  adapter.oper_status = 1;
  for (const std::wstring& server : servers) {
    adapter.dns_servers.push_back({server.find(L':') == std::wstring::npos ? 4 : 6, server});
  }
  const std::lock_guard lock(mutex_);
  adapters = {adapter};
}

std::vector<Adapter> Network::Adapters() const {
  const std::lock_guard lock(mutex_);
  return adapters;
}

}  // namespace simulation

namespace kestrelon::platform {
namespace {

using simulation::TheMachine;

constexpr Code kNoData = 232;
constexpr std::uint32_t kSkipDnsServers = 0x8;  // GAA_FLAG_SKIP_DNS_SERVER

// Reads an address of a family into network order.
bool AddressFromText(int family, const std::wstring& text, void* address) {
  if (text.find(L'\0') != std::wstring::npos) return false;
  return inet_pton(family, Utf8FromWide(text).c_str(), address) == 1;
}

}  // namespace

bool Ipv4FromText(const std::wstring& text, std::uint32_t& address) {
  in_addr parsed{};
  if (!AddressFromText(AF_INET, text, &parsed)) return false;
  address = ntohl(parsed.s_addr);
  return true;
}

bool Ipv6FromText(const std::wstring& text, Ipv6Address& address) {
  Ipv6Address parsed{};
  if (!AddressFromText(AF_INET6, text, parsed.data())) return false;
  address = parsed;
  return true;
}

Code ListAdapters(std::uint32_t flags, std::vector<Adapter>& adapters) {
  if (const Code fault = TheMachine().faults.Next("ListAdapters")) return fault;
  std::vector<Adapter> list = TheMachine().network.Adapters();
  if (list.empty()) return kNoData;
  if ((flags & kSkipDnsServers) != 0) {
    for (Adapter& adapter : list) adapter.dns_servers.clear();
  }
  adapters = std::move(list);
  return kSuccess;
}

}  // namespace kestrelon::platform

#include "events/service_for_port.h"

#include <algorithm>
#include <map>
#include <optional>
#include <vector>

#include "base/guard.h"
#include "platform/clock.h"
#include "platform/network.h"
#include "platform/services.h"

namespace kestrelon {
namespace {

using platform::PortTable;

constexpr std::uint32_t kTcp = 6;
constexpr std::uint32_t kUdp = 17;
constexpr std::uint64_t kRefreshSpacingMs = 5000;

// A leaf. Held during a refresh, so that a burst of events asks the service manager once.
Guard ServiceTableGuard("ServiceTableGuard", GuardRank::kLeaf);
// By process id; empty for a process that hosts several.
std::map<std::uint32_t, std::wstring> ServiceNames GUARDED_BY(ServiceTableGuard);
// The tick of the last refresh.
std::optional<std::uint64_t> RefreshedAt GUARDED_BY(ServiceTableGuard);

// 0 when nobody is known to own the port.
std::uint32_t OwnerPidForPort(PortTable table, int family, std::uint16_t port) {
  std::vector<platform::PortOwner> owners;
  if (platform::ListPortOwners(table, family, owners) != platform::kSuccess) return 0;
  const auto owner = std::ranges::find(owners, port, &platform::PortOwner::port);
  return owner != owners.end() ? owner->process_id : 0;
}

// Leaves the table empty when the service manager gives no answer.
void RefreshServices() REQUIRES(ServiceTableGuard) {
  ServiceNames.clear();
  RefreshedAt = platform::TickMilliseconds();
  platform::ServiceHandle manager;
  std::vector<platform::ServiceProcess> services;
  if (platform::OpenServiceManager(platform::kManagerEnumerate, manager) != platform::kSuccess ||
      platform::EnumerateServiceProcesses(manager, platform::kServiceTypeWin32,
                                          platform::kServiceStateActive,
                                          services) != platform::kSuccess) {
    return;
  }
  for (const platform::ServiceProcess& service : services) {
    if (service.process_id == 0) continue;
    const auto [entry, first] = ServiceNames.try_emplace(service.process_id, service.name);
    // To guess among the services of a process would be worse than to say nothing.
    if (!first) entry->second.clear();
  }
}

std::wstring ServiceOfProcess(std::uint32_t process_id) {
  const GuardLock lock(ServiceTableGuard);
  const std::uint64_t now = platform::TickMilliseconds();
  if (!RefreshedAt || now - *RefreshedAt > kRefreshSpacingMs) RefreshServices();
  const auto entry = ServiceNames.find(process_id);
  return entry != ServiceNames.end() ? entry->second : L"";
}

}  // namespace

std::wstring ServiceForPort(std::uint32_t protocol, bool is_v6, std::uint16_t local_port) {
  if ((protocol != kTcp && protocol != kUdp) || local_port == 0) return L"";
  const PortTable table = protocol == kTcp ? PortTable::kTcp : PortTable::kUdp;
  const std::uint32_t process_id = OwnerPidForPort(table, is_v6 ? 6 : 4, local_port);
  return process_id != 0 ? ServiceOfProcess(process_id) : L"";
}

}  // namespace kestrelon

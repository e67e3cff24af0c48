#include "filtering/hosted_services.h"

#include <cstdint>
#include <optional>

#include "base/guard.h"
#include "identity/paths.h"
#include "identity/service_info.h"
#include "platform/clock.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr std::uint64_t kKeepMs = 600000;

struct ServiceList {
  std::uint64_t built_at = 0;  // tick
  std::vector<HostedService> services;
};

Guard HostedServicesGuard("HostedServicesGuard", GuardRank::kLeaf);
std::optional<ServiceList> kept GUARDED_BY(HostedServicesGuard);

std::optional<std::vector<HostedService>> KeptServices(std::uint64_t now) {
  GuardLock lock(HostedServicesGuard);
  if (!kept || now - kept->built_at > kKeepMs) return std::nullopt;
  return kept->services;
}

bool IsHosted(const ServiceInfo& service) {
  return !service.sid.empty() && service.sid_type != 0 && !service.image_path.empty() &&
         platform::EqualIgnoringCase(FileNamePart(service.image_path), L"svchost.exe");
}

}  // namespace

std::vector<HostedService> HostedServices() {
  const std::uint64_t now = platform::TickMilliseconds();
  if (auto services = KeptServices(now)) return *std::move(services);
  // The service manager is asked without the guard: of two threads that ask at once, the later
  // answer is kept.
  std::vector<HostedService> services;
  for (const ServiceInfo& service : ListServices()) {
    if (IsHosted(service)) services.push_back({service.name, service.sid});
  }
  GuardLock lock(HostedServicesGuard);
  kept = ServiceList{now, services};
  return services;
}

}  // namespace kestrelon

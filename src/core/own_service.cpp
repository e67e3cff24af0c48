#include "core/own_service.h"

namespace kestrelon {

platform::Code OpenOwnService(std::uint32_t access, platform::ServiceHandle& service) {
  platform::ServiceHandle manager;
  const platform::Code code = platform::OpenServiceManager(platform::kManagerConnect, manager);
  if (code != platform::kSuccess) return code;
  return platform::OpenServiceByName(manager, kServiceName, access, service);
}

bool StartOwnService() {
  platform::ServiceHandle service;
  if (OpenOwnService(platform::kServiceStart, service) != platform::kSuccess) return false;
  const platform::Code code = platform::LaunchService(service);
  return code == platform::kSuccess || code == platform::kServiceAlreadyRunning;
}

}  // namespace kestrelon

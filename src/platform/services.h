// The service manager. Calls may block on it for a long time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/codes.h"

namespace kestrelon::platform {

enum ManagerAccess : std::uint32_t { kManagerConnect = 1, kManagerEnumerate = 4 };
enum ServiceAccess : std::uint32_t { kServiceQueryConfig = 1, kServiceQueryStatus = 4 };
inline constexpr std::uint32_t kServiceTypeWin32 = 48;
inline constexpr std::uint32_t kServiceStateAll = 3;

// A handle of the service manager: the manager itself or one service. Closes itself.
class ServiceHandle {
 public:
  ServiceHandle() = default;
  ~ServiceHandle() { Close(); }
  ServiceHandle(ServiceHandle&& other) noexcept : handle_(other.handle_) { other.handle_ = 0; }
  ServiceHandle& operator=(ServiceHandle&& other) noexcept;

  void Close();

  // The platform's value; 0 while closed. For the implementation of the calls below.
  std::uintptr_t handle() const { return handle_; }
  void Adopt(std::uintptr_t handle) {
    Close();
    handle_ = handle;
  }

 private:
  std::uintptr_t handle_ = 0;
};

[[nodiscard]] Code OpenServiceManager(std::uint32_t access, ServiceHandle& manager);

[[nodiscard]] Code OpenServiceByName(const ServiceHandle& manager, const std::wstring& name,
                                     std::uint32_t access, ServiceHandle& service);

struct ServiceSettings {
  std::wstring display_name;
  std::wstring binary_path;  // the command line as registered
};

[[nodiscard]] Code QueryServiceSettings(const ServiceHandle& service, ServiceSettings& settings);

// SERVICE_CONFIG_SERVICE_SID_INFO: 0 none, 1 unrestricted, 3 restricted.
[[nodiscard]] Code QueryServiceSidType(const ServiceHandle& service, std::uint32_t& sid_type);

[[nodiscard]] Code QueryServiceState(const ServiceHandle& service, std::uint32_t& state);

// The key names of all services of a type and state.
[[nodiscard]] Code EnumerateServices(const ServiceHandle& manager, std::uint32_t type,
                                     std::uint32_t state, std::vector<std::wstring>& names);

}  // namespace kestrelon::platform

// The service manager. Calls may block on it for a long time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/codes.h"
#include "platform/handle.h"

namespace kestrelon::platform {

enum ManagerAccess : std::uint32_t {
  kManagerConnect = 1,
  kManagerCreate = 2,
  kManagerEnumerate = 4,
  kManagerAllAccess = 0xF003F,
};
enum ServiceAccess : std::uint32_t {
  kServiceQueryConfig = 1,
  kServiceChangeConfig = 2,
  kServiceQueryStatus = 4,
  kServiceStart = 16,
  kServiceStop = 32,
  kServiceDelete = 0x10000,
  kServiceAllAccess = 0xF01FF,
};
inline constexpr std::uint32_t kServiceTypeWin32 = 48;
inline constexpr std::uint32_t kServiceStateActive = 1;
inline constexpr std::uint32_t kServiceStateAll = 3;

// A handle of the service manager: the manager itself or one service.
void CloseService(std::uintptr_t handle);
using ServiceHandle = Handle<&CloseService>;

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

struct ServiceProcess {
  std::wstring name;             // key name
  std::uint32_t process_id = 0;  // 0: no process
};

// The same with the processes that host them. The buffer has 4096 bytes more than the platform
// asked for a moment before.
[[nodiscard]] Code EnumerateServiceProcesses(const ServiceHandle& manager, std::uint32_t type,
                                             std::uint32_t state,
                                             std::vector<ServiceProcess>& services);

inline constexpr std::uint32_t kServiceOwnProcess = 16;
inline constexpr std::uint32_t kServiceStartAutomatic = 2;
inline constexpr std::uint32_t kServiceErrorNormal = 1;

// The record of a service that runs as LocalSystem.
struct ServiceRecord {
  std::wstring name;
  std::wstring display_name;
  std::uint32_t type = kServiceOwnProcess;
  std::uint32_t start = kServiceStartAutomatic;
  std::uint32_t error_control = kServiceErrorNormal;
  std::wstring binary_path;  // command line; a path with blanks in double quotes
  std::vector<std::wstring> dependencies;
};

// Registers a service and opens it with all access; kServiceExists when there is one of the name.
[[nodiscard]] Code RegisterService(const ServiceHandle& manager, const ServiceRecord& record,
                                   ServiceHandle& service);

// Gives an existing service the record; account and name stay.
[[nodiscard]] Code UpdateService(const ServiceHandle& service, const ServiceRecord& record);

Code DescribeService(const ServiceHandle& service, const std::wstring& description);

// What the manager does when the service fails: restarts after these times, one after the other;
// the count of failures begins anew after the period without one.
struct FailureActions {
  std::uint32_t reset_period_s = 0;
  std::vector<std::uint32_t> restart_delays_ms;
};
Code SetServiceFailureActions(const ServiceHandle& service, const FailureActions& actions);
// Whether they also follow an exit with an error code, not only a crash.
Code SetServiceFailureFlag(const ServiceHandle& service, bool on_error_exit);

// Starts a service and returns while it comes up; kServiceAlreadyRunning when it runs.
[[nodiscard]] Code LaunchService(const ServiceHandle& service);

// Asks a service to stop and returns while it does.
[[nodiscard]] Code RequestServiceStop(const ServiceHandle& service);

// Takes the service out of the manager's table; a running one, or one that is open elsewhere, is
// marked and goes when it ends. kServiceMarkedForDelete when it was already.
[[nodiscard]] Code UnregisterService(const ServiceHandle& service);

}  // namespace kestrelon::platform

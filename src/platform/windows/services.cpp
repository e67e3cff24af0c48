#include "platform/services.h"

#include "platform/windows/windows_headers.h"

namespace kestrelon::platform {
namespace {

// Services may be added between the question for the size and the question itself.
constexpr int kEnumerationTries = 5;
constexpr DWORD kEnumerationReserve = 4096;  // bytes

SC_HANDLE NativeHandle(const ServiceHandle& handle) {
  return reinterpret_cast<SC_HANDLE>(handle.handle());
}

std::wstring TextOrEmpty(const wchar_t* text) {
  return text != nullptr ? text : L"";
}

// Each name with its null; the last one's is followed by the null that ends the list.
std::wstring NullSeparated(const std::vector<std::wstring>& names) {
  std::wstring list;
  for (const std::wstring& name : names) {
    list += name;
    list += L'\0';
  }
  return list;
}

Code SetServiceOption(const ServiceHandle& service, DWORD option, void* value) {
  return ChangeServiceConfig2W(NativeHandle(service), option, value) ? kSuccess : GetLastError();
}

}  // namespace

void CloseService(std::uintptr_t handle) {
  CloseServiceHandle(reinterpret_cast<SC_HANDLE>(handle));
}

Code OpenServiceManager(std::uint32_t access, ServiceHandle& manager) {
  const SC_HANDLE handle = OpenSCManagerW(nullptr, nullptr, access);
  if (handle == nullptr) return GetLastError();
  manager.Adopt(reinterpret_cast<std::uintptr_t>(handle));
  return kSuccess;
}

Code OpenServiceByName(const ServiceHandle& manager, const std::wstring& name, std::uint32_t access,
                       ServiceHandle& service) {
  const SC_HANDLE handle = OpenServiceW(NativeHandle(manager), name.c_str(), access);
  if (handle == nullptr) return GetLastError();
  service.Adopt(reinterpret_cast<std::uintptr_t>(handle));
  return kSuccess;
}

Code QueryServiceSettings(const ServiceHandle& service, ServiceSettings& settings) {
  DWORD needed = 0;
  QueryServiceConfigW(NativeHandle(service), nullptr, 0, &needed);
  const Code probe = GetLastError();
  if (probe != kInsufficientBuffer) return probe;
  std::vector<std::uint8_t> buffer(needed);
  auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
  if (!QueryServiceConfigW(NativeHandle(service), config, needed, &needed)) return GetLastError();
  settings.display_name = TextOrEmpty(config->lpDisplayName);
  settings.binary_path = TextOrEmpty(config->lpBinaryPathName);
  return kSuccess;
}

Code QueryServiceSidType(const ServiceHandle& service, std::uint32_t& sid_type) {
  SERVICE_SID_INFO information{};
  DWORD needed = 0;
  if (!QueryServiceConfig2W(NativeHandle(service), SERVICE_CONFIG_SERVICE_SID_INFO,
                            reinterpret_cast<LPBYTE>(&information), sizeof information, &needed)) {
    return GetLastError();
  }
  sid_type = information.dwServiceSidType;
  return kSuccess;
}

Code QueryServiceState(const ServiceHandle& service, std::uint32_t& state) {
  SERVICE_STATUS status{};
  if (!QueryServiceStatus(NativeHandle(service), &status)) return GetLastError();
  state = status.dwCurrentState;
  return kSuccess;
}

Code EnumerateServices(const ServiceHandle& manager, std::uint32_t type, std::uint32_t state,
                       std::vector<std::wstring>& names) {
  std::vector<std::uint8_t> buffer;
  Code code = ERROR_MORE_DATA;
  for (int attempt = 0; attempt < kEnumerationTries && code == ERROR_MORE_DATA; ++attempt) {
    DWORD needed = 0;
    DWORD count = 0;
    DWORD resume = 0;
    const auto room = static_cast<DWORD>(buffer.size());
    if (EnumServicesStatusExW(NativeHandle(manager), SC_ENUM_PROCESS_INFO, type, state,
                              buffer.data(), room, &needed, &count, &resume, nullptr)) {
      const auto* const entries = reinterpret_cast<ENUM_SERVICE_STATUS_PROCESSW*>(buffer.data());
      names.clear();
      for (DWORD i = 0; i < count; ++i) names.emplace_back(entries[i].lpServiceName);
      return kSuccess;
    }
    code = GetLastError();
    // What is reported is what remained behind the part that did fit.
    buffer.resize(buffer.size() + needed);
  }
  return code;
}

Code EnumerateServiceProcesses(const ServiceHandle& manager, std::uint32_t type,
                               std::uint32_t state, std::vector<ServiceProcess>& services) {
  DWORD needed = 0;
  DWORD count = 0;
  DWORD resume = 0;
  const auto enumerate = [&](std::vector<std::uint8_t>& buffer) -> Code {
    const auto room = static_cast<DWORD>(buffer.size());
    resume = 0;
    return EnumServicesStatusExW(NativeHandle(manager), SC_ENUM_PROCESS_INFO, type, state,
                                 buffer.data(), room, &needed, &count, &resume, nullptr)
               ? kSuccess
               : GetLastError();
  };
  std::vector<std::uint8_t> buffer;
  if (const Code probe = enumerate(buffer); probe != kSuccess && probe != kMoreData) return probe;
  buffer.resize(std::size_t{needed} + kEnumerationReserve);
  if (const Code code = enumerate(buffer); code != kSuccess) return code;
  const auto* const entries = reinterpret_cast<ENUM_SERVICE_STATUS_PROCESSW*>(buffer.data());
  services.clear();
  for (DWORD i = 0; i < count; ++i) {
    services.push_back({entries[i].lpServiceName, entries[i].ServiceStatusProcess.dwProcessId});
  }
  return kSuccess;
}

Code RegisterService(const ServiceHandle& manager, const ServiceRecord& record,
                     ServiceHandle& service) {
  const std::wstring dependencies = NullSeparated(record.dependencies);
  const SC_HANDLE handle = CreateServiceW(
      NativeHandle(manager), record.name.c_str(), record.display_name.c_str(), SERVICE_ALL_ACCESS,
      record.type, record.start, record.error_control, record.binary_path.c_str(), nullptr, nullptr,
      dependencies.c_str(), nullptr, nullptr);
  if (handle == nullptr) return GetLastError();
  service.Adopt(reinterpret_cast<std::uintptr_t>(handle));
  return kSuccess;
}

Code UpdateService(const ServiceHandle& service, const ServiceRecord& record) {
  const std::wstring dependencies = NullSeparated(record.dependencies);
  const BOOL changed =
      ChangeServiceConfigW(NativeHandle(service), record.type, record.start, record.error_control,
                           record.binary_path.c_str(), nullptr, nullptr, dependencies.c_str(),
                           nullptr, nullptr, record.display_name.c_str());
  return changed ? kSuccess : GetLastError();
}

Code DescribeService(const ServiceHandle& service, const std::wstring& description) {
  SERVICE_DESCRIPTIONW value{};
  value.lpDescription = const_cast<LPWSTR>(description.c_str());
  return SetServiceOption(service, SERVICE_CONFIG_DESCRIPTION, &value);
}

Code SetServiceFailureActions(const ServiceHandle& service, const FailureActions& actions) {
  std::vector<SC_ACTION> restarts;
  for (const std::uint32_t delay_ms : actions.restart_delays_ms) {
    restarts.push_back({SC_ACTION_RESTART, delay_ms});
  }
  SERVICE_FAILURE_ACTIONSW value{};
  value.dwResetPeriod = actions.reset_period_s;
  value.cActions = static_cast<DWORD>(restarts.size());
  value.lpsaActions = restarts.data();
  return SetServiceOption(service, SERVICE_CONFIG_FAILURE_ACTIONS, &value);
}

Code SetServiceFailureFlag(const ServiceHandle& service, bool on_error_exit) {
  SERVICE_FAILURE_ACTIONS_FLAG value{};
  value.fFailureActionsOnNonCrashFailures = on_error_exit;
  return SetServiceOption(service, SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &value);
}

Code LaunchService(const ServiceHandle& service) {
  return StartServiceW(NativeHandle(service), 0, nullptr) ? kSuccess : GetLastError();
}

Code RequestServiceStop(const ServiceHandle& service) {
  SERVICE_STATUS status{};
  const BOOL sent = ControlService(NativeHandle(service), SERVICE_CONTROL_STOP, &status);
  return sent ? kSuccess : GetLastError();
}

Code UnregisterService(const ServiceHandle& service) {
  return DeleteService(NativeHandle(service)) ? kSuccess : GetLastError();
}

}  // namespace kestrelon::platform

// The seam's service manager.
#include "platform/services.h"

#include "platform/service_host.h"
#include "simulation/machine/machine.h"

namespace kestrelon::platform {

using simulation::Service;
using simulation::TheMachine;

void CloseService(std::uintptr_t handle) {
  TheMachine().services.Close(handle);
}

Code OpenServiceManager(std::uint32_t access, ServiceHandle& manager) {
  if (const Code fault = TheMachine().faults.Next("OpenServiceManager")) return fault;
  manager.Adopt(TheMachine().services.OpenManager(access));
  return kSuccess;
}

Code OpenServiceByName(const ServiceHandle& manager, const std::wstring& name, std::uint32_t access,
                       ServiceHandle& service) {
  if (const Code fault = TheMachine().faults.Next("OpenServiceByName")) return fault;
  std::uintptr_t handle = 0;
  const Code code = TheMachine().services.OpenService(manager.handle(), name, access, handle);
  if (code == kSuccess) service.Adopt(handle);
  return code;
}

Code QueryServiceSettings(const ServiceHandle& service, ServiceSettings& settings) {
  if (const Code fault = TheMachine().faults.Next("QueryServiceSettings")) return fault;
  Service found;
  const Code code = TheMachine().services.Query(service.handle(), kServiceQueryConfig, found);
  if (code == kSuccess) settings = {found.display_name, found.binary_path};
  return code;
}

Code QueryServiceSidType(const ServiceHandle& service, std::uint32_t& sid_type) {
  if (const Code fault = TheMachine().faults.Next("QueryServiceSidType")) return fault;
  Service found;
  const Code code = TheMachine().services.Query(service.handle(), kServiceQueryConfig, found);
  if (code == kSuccess) sid_type = found.sid_type;
  return code;
}

Code QueryServiceState(const ServiceHandle& service, std::uint32_t& state) {
  if (const Code fault = TheMachine().faults.Next("QueryServiceState")) return fault;
  Service found;
  const Code code = TheMachine().services.Query(service.handle(), kServiceQueryStatus, found);
  if (code == kSuccess) state = found.state;
  return code;
}

Code EnumerateServices(const ServiceHandle& manager, std::uint32_t type, std::uint32_t state,
                       std::vector<std::wstring>& names) {
  if (const Code fault = TheMachine().faults.Next("EnumerateServices")) return fault;
  std::vector<Service> listed;
  const Code code = TheMachine().services.List(manager.handle(), type, state, listed);
  if (code != kSuccess) return code;
  names.clear();
  for (const Service& service : listed) names.push_back(service.name);
  return kSuccess;
}

Code EnumerateServiceProcesses(const ServiceHandle& manager, std::uint32_t type,
                               std::uint32_t state, std::vector<ServiceProcess>& services) {
  if (const Code fault = TheMachine().faults.Next("EnumerateServiceProcesses")) return fault;
  std::vector<Service> listed;
  const Code code = TheMachine().services.List(manager.handle(), type, state, listed);
  if (code != kSuccess) return code;
  services.clear();
  for (const Service& service : listed) {
    const bool stopped = service.state == kServiceStopped;
    services.push_back({service.name, stopped ? 0 : service.process_id});
  }
  return kSuccess;
}

Code RegisterService(const ServiceHandle& manager, const ServiceRecord& record,
                     ServiceHandle& service) {
  if (const Code fault = TheMachine().faults.Next("RegisterService")) return fault;
  std::uintptr_t handle = 0;
  const Code code = TheMachine().services.Register(manager.handle(), record, handle);
  if (code == kSuccess) service.Adopt(handle);
  return code;
}

Code UpdateService(const ServiceHandle& service, const ServiceRecord& record) {
  if (const Code fault = TheMachine().faults.Next("UpdateService")) return fault;
  const auto update = [&](Service& found) {
    found.display_name = record.display_name;
    found.type = record.type;
    found.start = record.start;
    found.error_control = record.error_control;
    found.binary_path = record.binary_path;
    found.dependencies = record.dependencies;
    return kSuccess;
  };
  return TheMachine().services.Change(service.handle(), kServiceChangeConfig, update);
}

Code DescribeService(const ServiceHandle& service, const std::wstring& description) {
  if (const Code fault = TheMachine().faults.Next("DescribeService")) return fault;
  const auto describe = [&](Service& found) {
    found.description = description;
    return kSuccess;
  };
  return TheMachine().services.Change(service.handle(), kServiceChangeConfig, describe);
}

Code SetServiceFailureActions(const ServiceHandle& service, const FailureActions& actions) {
  if (const Code fault = TheMachine().faults.Next("SetServiceFailureActions")) return fault;
  const auto set = [&](Service& found) {
    found.failure_actions = actions;
    return kSuccess;
  };
  // Who has the manager restart a service must be allowed to start it.
  return TheMachine().services.Change(service.handle(), kServiceChangeConfig | kServiceStart, set);
}

Code SetServiceFailureFlag(const ServiceHandle& service, bool on_error_exit) {
  if (const Code fault = TheMachine().faults.Next("SetServiceFailureFlag")) return fault;
  const auto set = [&](Service& found) {
    found.fails_on_error_exit = on_error_exit;
    return kSuccess;
  };
  return TheMachine().services.Change(service.handle(), kServiceChangeConfig, set);
}

Code LaunchService(const ServiceHandle& service) {
  if (const Code fault = TheMachine().faults.Next("LaunchService")) return fault;
  return TheMachine().services.Launch(service.handle());
}

Code RequestServiceStop(const ServiceHandle& service) {
  if (const Code fault = TheMachine().faults.Next("RequestServiceStop")) return fault;
  return TheMachine().services.Stop(service.handle());
}

Code UnregisterService(const ServiceHandle& service) {
  if (const Code fault = TheMachine().faults.Next("UnregisterService")) return fault;
  const auto mark = [](Service& found) {
    if (found.marked_for_delete) return kServiceMarkedForDelete;
    found.marked_for_delete = true;
    return kSuccess;
  };
  return TheMachine().services.Change(service.handle(), kServiceDelete, mark);
}

}  // namespace kestrelon::platform

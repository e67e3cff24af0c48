#include "simulation/machine/service_table.h"

#include "platform/services.h"
#include "simulation/machine/letter_case.h"
#include "simulation/machine/machine.h"

namespace simulation {

using kestrelon::platform::kAccessDenied;
using kestrelon::platform::kInvalidHandle;
using kestrelon::platform::kManagerConnect;
using kestrelon::platform::kManagerEnumerate;
using kestrelon::platform::kServiceNotFound;
using kestrelon::platform::kSuccess;

namespace {

constexpr kestrelon::platform::Code kInvalidName = 123;
constexpr std::size_t kLongestName = 256;
constexpr std::uint32_t kStopped = 1;
constexpr std::uint32_t kActiveServices = 1;
constexpr std::uint32_t kInactiveServices = 2;

}  // namespace

void ServiceTable::Add(const Service& service) {
  const std::lock_guard lock(mutex_);
  services_[FoldCase(service.name)] = std::make_shared<Service>(service);
}

void ServiceTable::Remove(const std::wstring& name) {
  const std::lock_guard lock(mutex_);
  services_.erase(FoldCase(name));
}

bool ServiceTable::Exists(const std::wstring& name) const {
  const std::lock_guard lock(mutex_);
  return services_.contains(FoldCase(name));
}

std::size_t ServiceTable::open_handles() const {
  const std::lock_guard lock(mutex_);
  return handles_.size();
}

void ServiceTable::DropHandles() {
  const std::lock_guard lock(mutex_);
  handles_.clear();
}

std::uintptr_t ServiceTable::OpenManager(std::uint32_t access) {
  const std::lock_guard lock(mutex_);
  // The platform adds the right to connect.
  handles_[++last_handle_] = Handle{access | kManagerConnect, nullptr};
  return last_handle_;
}

ServiceTable::Code ServiceTable::ManagerHandle(std::uintptr_t handle, std::uint32_t access) const {
  const auto manager = handles_.find(handle);
  if (manager == handles_.end() || manager->second.service) return kInvalidHandle;
  return (manager->second.access & access) == access ? kSuccess : kAccessDenied;
}

ServiceTable::Code ServiceTable::OpenService(std::uintptr_t manager, const std::wstring& name,
                                             std::uint32_t access, std::uintptr_t& handle) {
  const std::lock_guard lock(mutex_);
  if (const Code code = ManagerHandle(manager, kManagerConnect)) return code;
  if (name.empty() || name.size() > kLongestName ||
      name.find_first_of(L"/\\") != std::wstring::npos) {
    return kInvalidName;
  }
  const auto service = services_.find(FoldCase(name));
  if (service == services_.end()) return kServiceNotFound;
  handles_[++last_handle_] = Handle{access, service->second};
  handle = last_handle_;
  return kSuccess;
}

ServiceTable::Code ServiceTable::Query(std::uintptr_t handle, std::uint32_t access,
                                       Service& service) const {
  const std::lock_guard lock(mutex_);
  const auto found = handles_.find(handle);
  if (found == handles_.end() || !found->second.service) return kInvalidHandle;
  if ((found->second.access & access) != access) return kAccessDenied;
  service = *found->second.service;
  return kSuccess;
}

ServiceTable::Code ServiceTable::List(std::uintptr_t manager, std::uint32_t type,
                                      std::uint32_t state, std::vector<std::wstring>& names) const {
  const std::lock_guard lock(mutex_);
  if (const Code code = ManagerHandle(manager, kManagerEnumerate)) return code;
  std::vector<std::wstring> listed;
  for (const auto& [folded, service] : services_) {
    const std::uint32_t group = service->state == kStopped ? kInactiveServices : kActiveServices;
    if ((service->type & type) != 0 && (group & state) != 0) listed.push_back(service->name);
  }
  names = std::move(listed);
  return kSuccess;
}

void ServiceTable::Close(std::uintptr_t handle) {
  const std::lock_guard lock(mutex_);
  handles_.erase(handle);
}

}  // namespace simulation

namespace kestrelon::platform {

using simulation::Service;
using simulation::TheMachine;

ServiceHandle& ServiceHandle::operator=(ServiceHandle&& other) noexcept {
  if (this != &other) {
    Close();
    handle_ = other.handle_;
    other.handle_ = 0;
  }
  return *this;
}

void ServiceHandle::Close() {
  if (handle_ != 0) TheMachine().services.Close(handle_);
  handle_ = 0;
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
  return TheMachine().services.List(manager.handle(), type, state, names);
}

}  // namespace kestrelon::platform

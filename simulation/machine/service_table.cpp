#include "simulation/machine/service_table.h"

#include "platform/service_host.h"
#include "simulation/machine/letter_case.h"
#include "simulation/machine/machine.h"

namespace simulation {

using kestrelon::platform::kAccessDenied;
using kestrelon::platform::kFileNotFound;
using kestrelon::platform::kInvalidHandle;
using kestrelon::platform::kManagerConnect;
using kestrelon::platform::kManagerCreate;
using kestrelon::platform::kManagerEnumerate;
using kestrelon::platform::kServiceAllAccess;
using kestrelon::platform::kServiceAlreadyRunning;
using kestrelon::platform::kServiceExists;
using kestrelon::platform::kServiceMarkedForDelete;
using kestrelon::platform::kServiceNotFound;
using kestrelon::platform::kServiceRunning;
using kestrelon::platform::kServiceStart;
using kestrelon::platform::kServiceStartPending;
using kestrelon::platform::kServiceStop;
using kestrelon::platform::kServiceStopped;
using kestrelon::platform::kServiceStopPending;
using kestrelon::platform::kSuccess;

namespace {

constexpr kestrelon::platform::Code kInvalidName = 123;
constexpr kestrelon::platform::Code kCannotAcceptControl = 1061;
constexpr kestrelon::platform::Code kServiceNotActive = 1062;
constexpr kestrelon::platform::Code kDependencyMissing = 1075;
constexpr std::size_t kLongestName = 256;
constexpr std::uint32_t kActiveServices = 1;
constexpr std::uint32_t kInactiveServices = 2;

bool IsName(const std::wstring& name) {
  return !name.empty() && name.size() <= kLongestName &&
         name.find_first_of(L"/\\") == std::wstring::npos;
}

std::uint64_t TickAfter(std::uint64_t delay_ms) {
  return delay_ms == ServiceTable::kNever ? ~0ULL : TheMachine().clock.Tick() + delay_ms;
}

// The state by now: a pending one ends by itself when its time has passed.
std::uint32_t StateNow(const Service& service) {
  if (TheMachine().clock.Tick() < service.pending_until) return service.state;
  if (service.state == kServiceStartPending) return kServiceRunning;
  if (service.state == kServiceStopPending) return kServiceStopped;
  return service.state;
}

// The program of a command line whose path stands in double quotes or has no blanks.
std::wstring ProgramOf(const std::wstring& binary_path) {
  if (binary_path.starts_with(L'"')) return binary_path.substr(1, binary_path.find(L'"', 1) - 1);
  return binary_path.substr(0, binary_path.find(L' '));
}

// Whether there is a program to start. One named by a variable is the system's own.
bool ProgramExists(const std::wstring& binary_path) {
  return binary_path.starts_with(L'%') || TheMachine().files.Exists(ProgramOf(binary_path));
}

}  // namespace

void ServiceTable::Add(const Service& service) {
  const std::lock_guard lock(mutex_);
  services_[FoldCase(service.name)] = std::make_shared<Service>(service);
}

void ServiceTable::Remove(const std::wstring& name) {
  const std::lock_guard lock(mutex_);
  services_.erase(FoldCase(name));
}

std::shared_ptr<Service> ServiceTable::Lookup(const std::wstring& name) const {
  const auto found = services_.find(FoldCase(name));
  if (found == services_.end()) return nullptr;
  const Service& service = *found->second;
  const bool open = found->second.use_count() > 1;
  const bool gone = service.marked_for_delete && !open && StateNow(service) == kServiceStopped;
  return gone ? nullptr : found->second;
}

std::optional<Service> ServiceTable::Find(const std::wstring& name) const {
  const std::lock_guard lock(mutex_);
  const std::shared_ptr<Service> service = Lookup(name);
  if (!service) return std::nullopt;
  Service copy = *service;
  copy.state = StateNow(*service);
  return copy;
}

std::size_t ServiceTable::open_handles() const {
  const std::lock_guard lock(mutex_);
  return handles_.size();
}

void ServiceTable::DropHandles() {
  const std::lock_guard lock(mutex_);
  handles_.clear();
  std::erase_if(services_, [](const auto& entry) { return entry.second->marked_for_delete; });
  for (const auto& [folded, service] : services_) {
    if (service->state != kServiceRunning) service->state = kServiceStopped;
  }
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

ServiceTable::Code ServiceTable::ServiceBehind(std::uintptr_t handle, std::uint32_t access,
                                               std::shared_ptr<Service>& service) const {
  const auto found = handles_.find(handle);
  if (found == handles_.end() || !found->second.service) return kInvalidHandle;
  if ((found->second.access & access) != access) return kAccessDenied;
  service = found->second.service;
  return kSuccess;
}

ServiceTable::Code ServiceTable::OpenService(std::uintptr_t manager, const std::wstring& name,
                                             std::uint32_t access, std::uintptr_t& handle) {
  const std::lock_guard lock(mutex_);
  if (const Code code = ManagerHandle(manager, kManagerConnect)) return code;
  if (!IsName(name)) return kInvalidName;
  const std::shared_ptr<Service> service = Lookup(name);
  if (!service) return kServiceNotFound;
  handles_[++last_handle_] = Handle{access, service};
  handle = last_handle_;
  return kSuccess;
}

ServiceTable::Code ServiceTable::Register(std::uintptr_t manager,
                                          const kestrelon::platform::ServiceRecord& record,
                                          std::uintptr_t& handle) {
  const std::lock_guard lock(mutex_);
  if (const Code code = ManagerHandle(manager, kManagerCreate)) return code;
  if (!IsName(record.name)) return kInvalidName;
  if (const std::shared_ptr<Service> present = Lookup(record.name)) {
    return present->marked_for_delete ? kServiceMarkedForDelete : kServiceExists;
  }
  const auto service = std::make_shared<Service>(Service{.name = record.name,
                                                         .display_name = record.display_name,
                                                         .binary_path = record.binary_path,
                                                         .state = kServiceStopped,
                                                         .type = record.type,
                                                         .start = record.start,
                                                         .error_control = record.error_control,
                                                         .dependencies = record.dependencies});
  services_[FoldCase(record.name)] = service;
  handles_[++last_handle_] = Handle{kServiceAllAccess, service};
  handle = last_handle_;
  return kSuccess;
}

ServiceTable::Code ServiceTable::Query(std::uintptr_t handle, std::uint32_t access,
                                       Service& service) const {
  const std::lock_guard lock(mutex_);
  std::shared_ptr<Service> found;
  if (const Code code = ServiceBehind(handle, access, found)) return code;
  service = *found;
  service.state = StateNow(*found);
  return kSuccess;
}

ServiceTable::Code ServiceTable::Change(std::uintptr_t handle, std::uint32_t access,
                                        const std::function<Code(Service&)>& edit) {
  const std::lock_guard lock(mutex_);
  std::shared_ptr<Service> service;
  if (const Code code = ServiceBehind(handle, access, service)) return code;
  service->state = StateNow(*service);
  return edit(*service);
}

ServiceTable::Code ServiceTable::StartWithDependencies(Service& service) {
  for (const std::wstring& name : service.dependencies) {
    const std::shared_ptr<Service> needed = Lookup(name);
    if (!needed) return kDependencyMissing;
    if (StateNow(*needed) != kServiceStopped) continue;
    if (const Code code = StartWithDependencies(*needed)) return code;
  }
  if (!ProgramExists(service.binary_path)) return kFileNotFound;
  service.state = kServiceStartPending;
  service.pending_until = TickAfter(service.start_ms);
  return kSuccess;
}

ServiceTable::Code ServiceTable::Launch(std::uintptr_t handle) {
  return Change(handle, kServiceStart, [this](Service& service) -> Code {
    if (service.state != kServiceStopped) return kServiceAlreadyRunning;
    if (service.marked_for_delete) return kServiceMarkedForDelete;
    return StartWithDependencies(service);
  });
}

ServiceTable::Code ServiceTable::Stop(std::uintptr_t handle) {
  return Change(handle, kServiceStop, [](Service& service) -> Code {
    if (service.state == kServiceStopped) return kServiceNotActive;
    if (service.state != kServiceRunning) return kCannotAcceptControl;
    service.state = kServiceStopPending;
    service.pending_until = TickAfter(service.stop_ms);
    return kSuccess;
  });
}

ServiceTable::Code ServiceTable::List(std::uintptr_t manager, std::uint32_t type,
                                      std::uint32_t state, std::vector<Service>& listed) const {
  const std::lock_guard lock(mutex_);
  if (const Code code = ManagerHandle(manager, kManagerEnumerate)) return code;
  std::vector<Service> found;
  for (const auto& [folded, entry] : services_) {
    const std::shared_ptr<Service> service = Lookup(folded);
    if (!service) continue;
    const bool stopped = StateNow(*service) == kServiceStopped;
    const std::uint32_t group = stopped ? kInactiveServices : kActiveServices;
    if ((service->type & type) == 0 || (group & state) == 0) continue;
    found.push_back(*service);
    found.back().state = StateNow(*service);
  }
  listed = std::move(found);
  return kSuccess;
}

void ServiceTable::Close(std::uintptr_t handle) {
  const std::lock_guard lock(mutex_);
  handles_.erase(handle);
}

}  // namespace simulation

// The machine's service manager: its services and the handles to them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/codes.h"
#include "platform/services.h"

namespace simulation {

struct Service {
  std::wstring name;
  std::wstring display_name;
  std::wstring binary_path;    // the command line as registered
  std::uint32_t sid_type = 0;  // 0 none, 1 unrestricted, 3 restricted
  std::uint32_t state = 4;     // 1 stopped ... 4 running
  std::uint32_t type = 0x20;   // SERVICE_WIN32_SHARE_PROCESS; drivers are 1
  std::uint32_t start = 2;     // 2 automatic, 3 on demand
  std::uint32_t error_control = 1;
  std::vector<std::wstring> dependencies = {};
  std::wstring description = {};
  kestrelon::platform::FailureActions failure_actions = {};
  bool fails_on_error_exit = false;
  std::uint32_t process_id = 0;  // its host while it isn't stopped; 0: none

  // How long its program takes to come up and to stop, by the machine's tick.
  std::uint64_t start_ms = 0;
  std::uint64_t stop_ms = 0;

  // The table's own: when a pending state ends, and whether it goes once it is stopped and closed.
  std::uint64_t pending_until = 0;
  bool marked_for_delete = false;
};

// Names are found without regard to case. Any thread.
class ServiceTable {
 public:
  using Code = kestrelon::platform::Code;

  // A time in which no service comes up or stops.
  static constexpr std::uint64_t kNever = 0xFFFFFFFF;

  // Registers a service, or replaces the one of this name.
  void Add(const Service& service);

  // Handles to a removed service stay good, as to one marked for deletion.
  void Remove(const std::wstring& name);

  bool Exists(const std::wstring& name) const { return Find(name).has_value(); }

  // The service as it is now.
  std::optional<Service> Find(const std::wstring& name) const;

  // Handles given out and not closed.
  std::size_t open_handles() const;

  // As after a restart: all handles are gone, and so is what was marked for deletion; what was on
  // its way up or down is stopped.
  void DropHandles();

  // The service manager's calls, with its codes. For the seam.
  std::uintptr_t OpenManager(std::uint32_t access);
  Code OpenService(std::uintptr_t manager, const std::wstring& name, std::uint32_t access,
                   std::uintptr_t& handle);
  Code Register(std::uintptr_t manager, const kestrelon::platform::ServiceRecord& record,
                std::uintptr_t& handle);
  // The service behind a handle that was opened with `access`: 6 for a dead handle, 5 without.
  Code Query(std::uintptr_t handle, std::uint32_t access, Service& service) const;
  // Lets `edit` change it; its code is the answer.
  Code Change(std::uintptr_t handle, std::uint32_t access,
              const std::function<Code(Service&)>& edit);
  // Starts the service and what it depends on.
  Code Launch(std::uintptr_t handle);
  Code Stop(std::uintptr_t handle);
  Code List(std::uintptr_t manager, std::uint32_t type, std::uint32_t state,
            std::vector<Service>& listed) const;
  void Close(std::uintptr_t handle);

 private:
  struct Handle {
    std::uint32_t access = 0;
    std::shared_ptr<Service> service;  // null for the manager itself
  };

  // All need mutex_.
  Code ManagerHandle(std::uintptr_t handle, std::uint32_t access) const;
  Code ServiceBehind(std::uintptr_t handle, std::uint32_t access,
                     std::shared_ptr<Service>& service) const;
  std::shared_ptr<Service> Lookup(const std::wstring& name) const;
  Code StartWithDependencies(Service& service);

  mutable std::mutex mutex_;                                   // guards all below
  std::map<std::wstring, std::shared_ptr<Service>> services_;  // by case-folded name
  std::map<std::uintptr_t, Handle> handles_;
  std::uintptr_t last_handle_ = 0x5000;
};

}  // namespace simulation

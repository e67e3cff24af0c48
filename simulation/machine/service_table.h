// The machine's service manager: its services and the handles to them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/codes.h"

namespace simulation {

struct Service {
  std::wstring name;
  std::wstring display_name;
  std::wstring binary_path;    // the command line as registered
  std::uint32_t sid_type = 0;  // 0 none, 1 unrestricted, 3 restricted
  std::uint32_t state = 4;     // 1 stopped ... 4 running
  std::uint32_t type = 0x20;   // SERVICE_WIN32_SHARE_PROCESS; drivers are 1
};

// Names are found without regard to case. Any thread.
class ServiceTable {
 public:
  using Code = kestrelon::platform::Code;

  // Registers a service, or replaces the one of this name.
  void Add(const Service& service);

  // Handles to a removed service stay good, as to one marked for deletion.
  void Remove(const std::wstring& name);

  bool Exists(const std::wstring& name) const;

  // Handles given out and not closed.
  std::size_t open_handles() const;

  // All handles are gone, as after a restart.
  void DropHandles();

  // The service manager's calls, with its codes. For the seam.
  std::uintptr_t OpenManager(std::uint32_t access);
  Code OpenService(std::uintptr_t manager, const std::wstring& name, std::uint32_t access,
                   std::uintptr_t& handle);
  // The service behind a handle that was opened with `access`: 6 for a dead handle, 5 without.
  Code Query(std::uintptr_t handle, std::uint32_t access, Service& service) const;
  Code List(std::uintptr_t manager, std::uint32_t type, std::uint32_t state,
            std::vector<std::wstring>& names) const;
  void Close(std::uintptr_t handle);

 private:
  struct Handle {
    std::uint32_t access = 0;
    std::shared_ptr<Service> service;  // null for the manager itself
  };

  Code ManagerHandle(std::uintptr_t handle, std::uint32_t access) const;

  mutable std::mutex mutex_;                                   // guards all below
  std::map<std::wstring, std::shared_ptr<Service>> services_;  // by case-folded name
  std::map<std::uintptr_t, Handle> handles_;
  std::uintptr_t last_handle_ = 0x5000;
};

}  // namespace simulation

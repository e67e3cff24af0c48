// The machine's adapters, their interfaces and who owns its ports.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/network.h"

namespace simulation {

class Network {
 public:
  using Notification = kestrelon::platform::InterfaceNotification;

  // One adapter that is up, with these servers; texts with a colon are of the IPv6 family. Any
  // thread, at any time. Tells nobody: see ChangeInterfaces.
  void SetDnsServers(const std::vector<std::wstring>& servers);

  // A copy of the adapters. Any thread.
  std::vector<kestrelon::platform::Adapter> Adapters() const;

  // The owned ports of a protocol and family (4 or 6), in the order in which they are listed: takes
  // the place of those before. Any thread.
  void SetPortOwners(kestrelon::platform::PortTable table, int family,
                     std::vector<kestrelon::platform::PortOwner> owners);
  std::vector<kestrelon::platform::PortOwner> PortOwners(kestrelon::platform::PortTable table,
                                                         int family) const;

  // An IP interface changes: calls everybody who asked for that, in the order in which they did, on
  // a thread of its own, and waits for it.
  void ChangeInterfaces();

  // How many ask for changes of interfaces.
  std::size_t notifications() const;

  // For the seam. RemoveNotification waits for a running callback; false for an unknown one.
  Notification AddNotification(void (*callback)(void*), void* context);
  bool RemoveNotification(Notification notification);
  // Forgets all of them, as their process is gone.
  void DropNotifications();

  // For details that SetDnsServers can't make; to be changed only while no other thread runs.
  std::vector<kestrelon::platform::Adapter> adapters;

 private:
  struct Listener {
    void (*callback)(void*) = nullptr;
    void* context = nullptr;
  };

  void Notify(Notification notification);

  mutable std::mutex mutex_;  // guards all below, and `adapters` against SetDnsServers; not held
                              // during a callback
  std::map<std::pair<kestrelon::platform::PortTable, int>,
           std::vector<kestrelon::platform::PortOwner>>
      port_owners_;
  std::map<Notification, Listener> listeners_;
  Notification last_notification_ = 0;
  std::multiset<Notification> running_;  // callbacks at this moment
  std::condition_variable callback_done_;
};

}  // namespace simulation

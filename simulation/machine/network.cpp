#include "simulation/machine/network.h"

#include <arpa/inet.h>

#include <thread>

#include "base/text.h"
#include "platform/network.h"
#include "simulation/machine/machine.h"

namespace simulation {

using kestrelon::platform::Adapter;
using kestrelon::platform::PortOwner;
using kestrelon::platform::PortTable;

void Network::SetDnsServers(const std::vector<std::wstring>& servers) {
  Adapter adapter;
  adapter.oper_status = 1;
  for (const std::wstring& server : servers) {
    adapter.dns_servers.push_back({server.find(L':') == std::wstring::npos ? 4 : 6, server});
  }
  const std::lock_guard lock(mutex_);
  adapters = {adapter};
}

std::vector<Adapter> Network::Adapters() const {
  const std::lock_guard lock(mutex_);
  return adapters;
}

void Network::SetPortOwners(PortTable table, int family, std::vector<PortOwner> owners) {
  const std::lock_guard lock(mutex_);
  port_owners_[{table, family}] = std::move(owners);
}

std::vector<PortOwner> Network::PortOwners(PortTable table, int family) const {
  const std::lock_guard lock(mutex_);
  const auto found = port_owners_.find({table, family});
  return found == port_owners_.end() ? std::vector<PortOwner>{} : found->second;
}

void Network::ChangeInterfaces() {
  std::thread([this] {
    std::vector<Notification> told;
    {
      const std::lock_guard lock(mutex_);
      for (const auto& [notification, listener] : listeners_) told.push_back(notification);
    }
    for (const Notification notification : told) Notify(notification);
  }).join();
}

void Network::Notify(Notification notification) {
  std::unique_lock lock(mutex_);
  const auto found = listeners_.find(notification);
  if (found == listeners_.end()) return;
  const Listener listener = found->second;
  const auto running = running_.insert(notification);
  lock.unlock();
  listener.callback(listener.context);
  lock.lock();
  running_.erase(running);
  callback_done_.notify_all();
}

std::size_t Network::notifications() const {
  const std::lock_guard lock(mutex_);
  return listeners_.size();
}

Network::Notification Network::AddNotification(void (*callback)(void*), void* context) {
  const std::lock_guard lock(mutex_);
  listeners_[++last_notification_] = {callback, context};
  return last_notification_;
}

bool Network::RemoveNotification(Notification notification) {
  std::unique_lock lock(mutex_);
  if (listeners_.erase(notification) == 0) return false;
  callback_done_.wait(lock, [&] { return !running_.contains(notification); });
  return true;
}

void Network::DropNotifications() {
  const std::lock_guard lock(mutex_);
  listeners_.clear();
}

}  // namespace simulation

namespace kestrelon::platform {
namespace {

using simulation::TheMachine;

constexpr Code kNoData = 232;
constexpr std::uint32_t kSkipDnsServers = 0x8;  // GAA_FLAG_SKIP_DNS_SERVER

// Reads an address of a family into network order.
bool AddressFromText(int family, const std::wstring& text, void* address) {
  if (text.find(L'\0') != std::wstring::npos) return false;
  return inet_pton(family, Utf8FromWide(text).c_str(), address) == 1;
}

}  // namespace

bool Ipv4FromText(const std::wstring& text, std::uint32_t& address) {
  in_addr parsed{};
  if (!AddressFromText(AF_INET, text, &parsed)) return false;
  address = ntohl(parsed.s_addr);
  return true;
}

bool Ipv6FromText(const std::wstring& text, Ipv6Address& address) {
  Ipv6Address parsed{};
  if (!AddressFromText(AF_INET6, text, parsed.data())) return false;
  address = parsed;
  return true;
}

// The platform shortens alike but for ISATAP addresses (5efe), whose end it writes as IPv4.
std::wstring Ipv6Text(const Ipv6Address& address) {
  char text[INET6_ADDRSTRLEN] = {};
  inet_ntop(AF_INET6, address.data(), text, sizeof text);
  return WideFromUtf8(text);
}

Code ListPortOwners(PortTable table, int family, std::vector<PortOwner>& owners) {
  if (const Code fault = TheMachine().faults.Next("ListPortOwners")) return fault;
  if (family != 4 && family != 6) return kInvalidParameter;
  owners = TheMachine().network.PortOwners(table, family);
  return kSuccess;
}

Code ListAdapters(std::uint32_t flags, std::vector<Adapter>& adapters) {
  if (const Code fault = TheMachine().faults.Next("ListAdapters")) return fault;
  std::vector<Adapter> list = TheMachine().network.Adapters();
  if (list.empty()) return kNoData;
  if ((flags & kSkipDnsServers) != 0) {
    for (Adapter& adapter : list) adapter.dns_servers.clear();
  }
  adapters = std::move(list);
  return kSuccess;
}

Code NotifyInterfaceChanges(void (*callback)(void*), void* context,
                            InterfaceNotification& notification) {
  if (const Code fault = TheMachine().faults.Next("NotifyInterfaceChanges")) return fault;
  notification = TheMachine().network.AddNotification(callback, context);
  return kSuccess;
}

Code CancelInterfaceNotification(InterfaceNotification notification) {
  if (const Code fault = TheMachine().faults.Next("CancelInterfaceNotification")) return fault;
  if (notification == 0) return kSuccess;
  return TheMachine().network.RemoveNotification(notification) ? kSuccess : kInvalidHandle;
}

}  // namespace kestrelon::platform

// Addresses, adapters and their DNS servers.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/codes.h"

namespace kestrelon::platform {

using Ipv6Address = std::array<std::uint8_t, 16>;  // network order

// Reads four decimal parts ("10.0.0.1") into a host-order address; nothing else is accepted.
[[nodiscard]] bool Ipv4FromText(const std::wstring& text, std::uint32_t& address);

// Reads the forms of RFC 4291 without a zone.
[[nodiscard]] bool Ipv6FromText(const std::wstring& text, Ipv6Address& address);

// The shortest text form of an address; empty when the platform gives none.
[[nodiscard]] std::wstring Ipv6Text(const Ipv6Address& address);

// A local port in use and the process that owns it; 0 when the platform doesn't know.
struct PortOwner {
  std::uint16_t port = 0;  // host order
  std::uint32_t process_id = 0;
};
enum class PortTable { kTcp, kUdp };

// The platform's table of owned ports of a family (4 or 6), in its order. A buffer that is too
// small grows to what was asked and 2048 bytes more; the third call is the last.
[[nodiscard]] Code ListPortOwners(PortTable table, int family, std::vector<PortOwner>& owners);

struct DnsServer {
  int family = 0;     // 4 or 6; servers of other families are left out
  std::wstring text;  // may carry a zone ("fe80::1%7"); empty when it has no text form
};

struct Adapter {
  std::uint32_t oper_status = 0;  // 1 is up
  std::vector<DnsServer> dns_servers;
};

// The adapters of all families in the platform's order (GetAdaptersAddresses with `flags`), with
// a buffer that starts at 32768 bytes and grows at most twice.
[[nodiscard]] Code ListAdapters(std::uint32_t flags, std::vector<Adapter>& adapters);

// A registered notification; 0 for none.
using InterfaceNotification = std::uintptr_t;

// Has `callback(context)` called on a thread of the platform's after each change of an IP interface
// of any family; not for how things are at the call. To be ended by CancelInterfaceNotification.
[[nodiscard]] Code NotifyInterfaceChanges(void (*callback)(void*), void* context,
                                          InterfaceNotification& notification);
// Waits for a running callback and must not be called by one; none begins after a success. Does
// nothing for none.
Code CancelInterfaceNotification(InterfaceNotification notification);

}  // namespace kestrelon::platform

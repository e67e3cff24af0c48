#include "platform/network.h"

#include "platform/windows/windows_headers.h"

#include <ws2tcpip.h>
// Declares the notifications only where the socket types of <ws2tcpip.h> are known.
#include <iphlpapi.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <utility>

namespace kestrelon::platform {
namespace {

constexpr ULONG kFirstRoom = 32768;
constexpr int kMostCalls = 3;
constexpr DWORD kOwnerTableReserve = 2048;
constexpr std::size_t kAddressTextRoom = 65;

// Reads an address of a family into network order. A null inside the text would end it early for
// the platform, which would then read another address than the one that was written.
bool AddressFromText(int family, const std::wstring& text, void* address) {
  if (text.find(L'\0') != std::wstring::npos) return false;
  return InetPtonW(family, text.c_str(), address) == 1;
}

std::wstring AddressText(int family, const void* address) {
  wchar_t text[kAddressTextRoom] = {};
  return InetNtopW(family, address, text, kAddressTextRoom) != nullptr ? text : L"";
}

std::vector<DnsServer> DnsServersOf(const IP_ADAPTER_ADDRESSES& adapter) {
  std::vector<DnsServer> servers;
  for (const auto* server = adapter.FirstDnsServerAddress; server != nullptr;
       server = server->Next) {
    const sockaddr* const address = server->Address.lpSockaddr;
    if (address == nullptr) continue;
    if (address->sa_family == AF_INET) {
      const auto* const v4 = reinterpret_cast<const sockaddr_in*>(address);
      servers.push_back({4, AddressText(AF_INET, &v4->sin_addr)});
    } else if (address->sa_family == AF_INET6) {
      const auto* const v6 = reinterpret_cast<const sockaddr_in6*>(address);
      servers.push_back({6, AddressText(AF_INET6, &v6->sin6_addr)});
    }
  }
  return servers;
}

// The platform's own table, whole; empty when it wrote none.
Code ReadOwnerTable(PortTable table, int family, std::vector<std::uint8_t>& buffer) {
  const ULONG native_family = family == 4 ? AF_INET : AF_INET6;
  DWORD room = 0;
  Code code = kInsufficientBuffer;
  for (int call = 0; call < kMostCalls && code == kInsufficientBuffer; ++call) {
    // Sockets may be opened between the answer and the next question.
    if (call > 0) room += kOwnerTableReserve;
    buffer.resize(room);
    void* const rows = buffer.empty() ? nullptr : buffer.data();
    code = table == PortTable::kTcp
               ? GetExtendedTcpTable(rows, &room, FALSE, native_family, TCP_TABLE_OWNER_PID_ALL, 0)
               : GetExtendedUdpTable(rows, &room, FALSE, native_family, UDP_TABLE_OWNER_PID, 0);
  }
  return code;
}

// The four kinds of table differ in their rows, not in the members that count here.
template <typename Table>
std::vector<PortOwner> OwnersOf(const std::vector<std::uint8_t>& buffer) {
  std::vector<PortOwner> owners;
  if (buffer.size() < sizeof(Table)) return owners;
  const auto* const table = reinterpret_cast<const Table*>(buffer.data());
  for (DWORD i = 0; i < table->dwNumEntries; ++i) {
    const auto& row = table->table[i];
    owners.push_back({ntohs(static_cast<std::uint16_t>(row.dwLocalPort)), row.dwOwningPid});
  }
  return owners;
}

// What the platform's callback is given: the callback of the seam knows no interface rows.
struct InterfaceListener {
  void (*callback)(void*) = nullptr;
  void* context = nullptr;
  HANDLE handle = nullptr;
};

void NETIOAPI_API_ InterfaceChanged(void* context, MIB_IPINTERFACE_ROW* /*row*/,
                                    MIB_NOTIFICATION_TYPE /*type*/) {
  const auto* const listener = static_cast<const InterfaceListener*>(context);
  listener->callback(listener->context);
}

}  // namespace

bool Ipv4FromText(const std::wstring& text, std::uint32_t& address) {
  in_addr parsed{};
  if (!AddressFromText(AF_INET, text, &parsed)) return false;
  // The bytes stand in network order.
  std::uint8_t bytes[4];
  std::memcpy(bytes, &parsed, sizeof bytes);
  address = std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
            std::uint32_t{bytes[2]} << 8 | bytes[3];
  return true;
}

bool Ipv6FromText(const std::wstring& text, Ipv6Address& address) {
  Ipv6Address parsed{};
  if (!AddressFromText(AF_INET6, text, parsed.data())) return false;
  address = parsed;
  return true;
}

std::wstring Ipv6Text(const Ipv6Address& address) {
  return AddressText(AF_INET6, address.data());
}

Code ListPortOwners(PortTable table, int family, std::vector<PortOwner>& owners) {
  if (family != 4 && family != 6) return kInvalidParameter;
  std::vector<std::uint8_t> buffer;
  if (const Code code = ReadOwnerTable(table, family, buffer); code != kSuccess) return code;
  if (table == PortTable::kTcp) {
    owners = family == 4 ? OwnersOf<MIB_TCPTABLE_OWNER_PID>(buffer)
                         : OwnersOf<MIB_TCP6TABLE_OWNER_PID>(buffer);
  } else {
    owners = family == 4 ? OwnersOf<MIB_UDPTABLE_OWNER_PID>(buffer)
                         : OwnersOf<MIB_UDP6TABLE_OWNER_PID>(buffer);
  }
  return kSuccess;
}

Code ListAdapters(std::uint32_t flags, std::vector<Adapter>& adapters) {
  ULONG room = kFirstRoom;
  std::vector<std::uint8_t> buffer;
  Code code = kBufferOverflow;
  for (int call = 0; call < kMostCalls && code == kBufferOverflow; ++call) {
    buffer.resize(room);
    code = GetAdaptersAddresses(AF_UNSPEC, flags, nullptr,
                                reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data()), &room);
  }
  if (code != kSuccess) return code;
  std::vector<Adapter> list;
  for (const auto* adapter = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(buffer.data());
       adapter != nullptr; adapter = adapter->Next) {
    list.push_back({static_cast<std::uint32_t>(adapter->OperStatus), DnsServersOf(*adapter)});
  }
  adapters = std::move(list);
  return kSuccess;
}

Code NotifyInterfaceChanges(void (*callback)(void*), void* context,
                            InterfaceNotification& notification) {
  auto listener = std::make_unique<InterfaceListener>();
  listener->callback = callback;
  listener->context = context;
  const Code code = NotifyIpInterfaceChange(AF_UNSPEC, InterfaceChanged, listener.get(), FALSE,
                                            &listener->handle);
  if (code == kSuccess) notification = reinterpret_cast<InterfaceNotification>(listener.release());
  return code;
}

Code CancelInterfaceNotification(InterfaceNotification notification) {
  if (notification == 0) return kSuccess;
  std::unique_ptr<InterfaceListener> listener(reinterpret_cast<InterfaceListener*>(notification));
  const Code code = CancelMibChangeNotify2(listener->handle);
  // Only a success promises that no callback is running or will run: otherwise the listener stays.
  if (code != kSuccess) (void)listener.release();
  return code;
}

}  // namespace kestrelon::platform

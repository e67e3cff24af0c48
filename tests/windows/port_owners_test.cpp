// The platform's tables of owned ports, held against sockets of this process.
#include <winsock2.h>

#include <ws2tcpip.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/network.h"

namespace {

using namespace kestrelon::platform;

struct Case {
  PortTable table;
  int family;
};

// A socket connected to itself or to a listener of its own on the loopback address, which has sent
// a byte: a socket that was never used has no owner under Wine.
class UsedSocket {
 public:
  explicit UsedSocket(const Case& kind) {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    const int type = kind.table == PortTable::kTcp ? SOCK_STREAM : SOCK_DGRAM;
    const int family = kind.family == 4 ? AF_INET : AF_INET6;
    peer_ = socket(family, type, 0);
    used_ = socket(family, type, 0);
    sockaddr_storage address = Bind(peer_, family);
    if (type == SOCK_STREAM) listen(peer_, 1);
    port_ = PortOf(Bind(used_, family));
    connect(used_, reinterpret_cast<sockaddr*>(&address), Size(family));
    sent_ = send(used_, "x", 1, 0) == 1;
  }
  ~UsedSocket() {
    closesocket(used_);
    closesocket(peer_);
    WSACleanup();
  }

  bool sent() const { return sent_; }
  std::uint16_t port() const { return port_; }

 private:
  static int Size(int family) {
    return family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
  }

  // Binds it to a free port of the loopback address and gives the address with that port.
  static sockaddr_storage Bind(SOCKET socket, int family) {
    sockaddr_storage address{};
    auto* const v4 = reinterpret_cast<sockaddr_in*>(&address);
    auto* const v6 = reinterpret_cast<sockaddr_in6*>(&address);
    address.ss_family = static_cast<ADDRESS_FAMILY>(family);
    if (family == AF_INET) v4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (family == AF_INET6) v6->sin6_addr.s6_addr[15] = 1;
    int size = Size(family);
    bind(socket, reinterpret_cast<sockaddr*>(&address), size);
    getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    return address;
  }

  // The port stands at the same place in both families.
  static std::uint16_t PortOf(const sockaddr_storage& address) {
    return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
  }

  SOCKET peer_ = INVALID_SOCKET;
  SOCKET used_ = INVALID_SOCKET;
  std::uint16_t port_ = 0;
  bool sent_ = false;
};

// The process that the platform names as the owner of such a socket.
std::uint32_t OwnerOfUsedSocket(const Case& kind) {
  const UsedSocket used(kind);
  EXPECT_TRUE(used.sent());
  std::vector<PortOwner> owners;
  EXPECT_EQ(ListPortOwners(kind.table, kind.family, owners), kSuccess);
  const auto owner = std::ranges::find(owners, used.port(), &PortOwner::port);
  return owner != owners.end() ? owner->process_id : 0;
}

TEST(ListPortOwners, NamesThisProcessForASocketOfItsOwn) {
  EXPECT_EQ(OwnerOfUsedSocket({PortTable::kTcp, 4}), GetCurrentProcessId());
  EXPECT_EQ(OwnerOfUsedSocket({PortTable::kUdp, 4}), GetCurrentProcessId());
  EXPECT_EQ(OwnerOfUsedSocket({PortTable::kUdp, 6}), GetCurrentProcessId());
}

TEST(ListPortOwners, NamesThisProcessForATcpSocketOverIpv6) {
  EXPECT_EQ(OwnerOfUsedSocket({PortTable::kTcp, 6}), GetCurrentProcessId());
}

}  // namespace

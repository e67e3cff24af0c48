// The platform's tables of owned ports, held against sockets of this process.
#include <winsock2.h>

#include <ws2tcpip.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/network.h"

namespace {

using namespace kestrelon::platform;

// Whether the platform names this process as an owner of the port. Connections that have ended stay
// in the table for a while and may have the same port. Wine makes its table line by line, so that
// on a busy machine it may lack a socket: it is asked for two seconds at most.
bool OwnsPort(PortTable table, int family, std::uint16_t port) {
  for (int call = 0; call < 100; ++call) {
    std::vector<PortOwner> owners;
    EXPECT_EQ(ListPortOwners(table, family, owners), kSuccess);
    if (std::ranges::any_of(owners, [port](const PortOwner& owner) {
          return owner.port == port && owner.process_id == GetCurrentProcessId();
        })) {
      return true;
    }
    Sleep(20);
  }
  return false;
}

// Whether it does so for a socket on the loopback address. The socket has sent a byte: one that was
// never used has no owner under Wine.
bool OwnsUsedSocket(PortTable table, int family) {
  WSADATA data;
  EXPECT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
  addrinfo hints{};
  hints.ai_socktype = table == PortTable::kTcp ? SOCK_STREAM : SOCK_DGRAM;
  addrinfo* loopback = nullptr;
  EXPECT_EQ(getaddrinfo(family == 4 ? "127.0.0.1" : "::1", "0", &hints, &loopback), 0);
  sockaddr* const name = loopback->ai_addr;
  int size = static_cast<int>(loopback->ai_addrlen);
  const SOCKET peer = socket(loopback->ai_family, hints.ai_socktype, 0);
  const SOCKET used = socket(loopback->ai_family, hints.ai_socktype, 0);
  bind(peer, name, size);
  getsockname(peer, name, &size);
  listen(peer, 1);  // means nothing to UDP
  connect(used, name, size);
  EXPECT_EQ(send(used, "x", 1, 0), 1);
  getsockname(used, name, &size);
  // The port stands at the same place in both families.
  const std::uint16_t port = ntohs(reinterpret_cast<const sockaddr_in*>(name)->sin_port);
  const bool owns = OwnsPort(table, family, port);
  closesocket(used);
  closesocket(peer);
  freeaddrinfo(loopback);
  WSACleanup();
  return owns;
}

TEST(ListPortOwners, NamesThisProcessForASocketOfItsOwn) {
  EXPECT_TRUE(OwnsUsedSocket(PortTable::kTcp, 4));
  EXPECT_TRUE(OwnsUsedSocket(PortTable::kUdp, 4));
  EXPECT_TRUE(OwnsUsedSocket(PortTable::kUdp, 6));
}

TEST(ListPortOwners, NamesThisProcessForATcpSocketOverIpv6) {
  EXPECT_TRUE(OwnsUsedSocket(PortTable::kTcp, 6));
}

}  // namespace

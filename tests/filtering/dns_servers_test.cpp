#include "filtering/dns_servers.h"

#include <gtest/gtest.h>

#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

using platform::Adapter;
using simulation::TheMachine;

TEST(DnsServers, AreThoseOfAdaptersThatAreUp) {
  const std::pair<std::vector<Adapter>, const wchar_t*> rows[] = {
      {{}, L""},
      {{Adapter{1, {{4, L"192.0.2.9"}, {4, L"192.0.2.1"}}}}, L"192.0.2.9, 192.0.2.1"},
      {{Adapter{2, {{4, L"192.0.2.1"}}}, Adapter{1, {{4, L"192.0.2.2"}}}}, L"192.0.2.2"},
      {{Adapter{1, {{4, L"192.0.2.1"}}}, Adapter{1, {{6, L"2001:db8::A"}, {6, L"2001:DB8::a"}}},
        Adapter{1, {{4, L"192.0.2.1"}}}},
       L"192.0.2.1, 2001:db8::A"},
      {{Adapter{1, {{6, L"fe80::1%7"}, {6, L"fe80::1%9"}, {6, L"%3"}, {6, L""}}}}, L"fe80::1"},
      {{Adapter{1, {{6, L"fec0:0:0:ffff::1%1"}}}}, L""},
      {{Adapter{1, {{6, L"fec0:0:0:ffff::1"}, {6, L"2001:db8::1"}}}}, L"2001:db8::1"},
  };
  for (const auto& [adapters, servers] : rows) {
    TheMachine().network.adapters = adapters;
    EXPECT_EQ(CollectDnsServers(), servers);
  }
  TheMachine().network.adapters = rows[1].first;
  TheMachine().faults.FailAlways("ListAdapters", platform::kBufferOverflow);
  EXPECT_EQ(CollectDnsServers(), L"") << "when the platform fails";
}

}  // namespace
}  // namespace kestrelon

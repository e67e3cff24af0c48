#include "events/service_for_port.h"

#include <gtest/gtest.h>

#include "platform/service_host.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

using platform::PortTable;
using simulation::TheMachine;

constexpr std::uint32_t kDnscacheHost = 1944;
constexpr std::uint32_t kTimeHost = 2108;
constexpr std::uint32_t kSharedHost = 1288;  // of three services
constexpr std::uint32_t kProgram = 5000;     // none, since a service ended

class ServiceForPort : public testing::Test {
 protected:
  void SetUp() override {
    for (const wchar_t* name : {L"Dhcp", L"EventLog", L"lmhosts"}) Run(name, kSharedHost);
    Run(L"Stopped", kProgram, platform::kServiceStopped);
    simulation::Network& network = TheMachine().network;
    network.SetPortOwners(PortTable::kTcp, 4, {{135, kTimeHost}});
    network.SetPortOwners(PortTable::kTcp, 6, {{135, kDnscacheHost}});
    network.SetPortOwners(
        PortTable::kUdp, 4,
        {{68, kSharedHost}, {123, 0}, {135, kDnscacheHost}, {135, kTimeHost}, {500, kProgram}});
    network.SetPortOwners(PortTable::kUdp, 6, {{135, kTimeHost}});
  }

  // The service behind a UDP port that Dnscache holds at the start.
  std::wstring Asked() { return kestrelon::ServiceForPort(17, false, 135); }

  // A service of this name, in place of one that was there.
  void Run(const wchar_t* name, std::uint32_t process_id,
           std::uint32_t state = platform::kServiceRunning) {
    simulation::Service service;
    service.name = name;
    service.process_id = process_id;
    service.state = state;
    TheMachine().services.Add(service);
  }
};

TEST_F(ServiceForPort, NamesTheOnlyServiceOfTheFirstOwner) {
  const struct {
    const char* what;
    std::uint32_t protocol;
    bool is_v6;
    std::uint16_t port;
    const wchar_t* service;
  } cases[] = {
      {"TCP over IPv4", 6, false, 135, L"W32Time"},
      {"TCP over IPv6", 6, true, 135, L"Dnscache"},
      {"UDP over IPv4, the first of two owners", 17, false, 135, L"Dnscache"},
      {"UDP over IPv6", 17, true, 135, L"W32Time"},
      {"a shared host", 17, false, 68, L""},
      {"an unknown owner", 17, false, 123, L""},
      {"a program without services", 17, false, 500, L""},
      {"a port that nobody holds", 17, false, 9, L""},
      {"ICMP", 1, false, 135, L""},
      {"a protocol that ends in the bits of UDP", 256 + 17, false, 135, L""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(kestrelon::ServiceForPort(c.protocol, c.is_v6, c.port), c.service) << c.what;
  }
  TheMachine().faults.FailOnce("ListPortOwners", platform::kInsufficientBuffer);
  EXPECT_EQ(Asked(), L"") << "without the port table";
}

TEST_F(ServiceForPort, AsksForTheServicesAgainAfterFiveSecondsAlsoInVain) {
  for (const char* call : {"OpenServiceManager", "EnumerateServiceProcesses"}) {
    EXPECT_EQ(Asked(), L"Dnscache") << call;
    TheMachine().clock.Advance(5001);
    TheMachine().faults.FailOnce(call, platform::kAccessDenied);
    EXPECT_EQ(Asked(), L"") << call;
    TheMachine().clock.Advance(5000);
    EXPECT_EQ(Asked(), L"") << call;
    TheMachine().clock.Advance(1);
  }
  EXPECT_EQ(Asked(), L"Dnscache");
  Run(L"Dnscache", kTimeHost);
  EXPECT_EQ(Asked(), L"Dnscache");
  TheMachine().clock.Advance(5001);
  EXPECT_EQ(Asked(), L"") << "it runs elsewhere now";
  EXPECT_EQ(TheMachine().services.open_handles(), 0u);
}

}  // namespace
}  // namespace kestrelon

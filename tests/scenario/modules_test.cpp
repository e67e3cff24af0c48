// What an approved module may reach.
#include <algorithm>

#include "base/text.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

constexpr const char* kManifest = R"({
  "id": "lan-messages", "name": "M", "version": "2", "publisher": "TARGON HELVERIK Ltd. Co.",
  "network": [{"dir": "both", "protocol": "udp", "port": 53535, "scope": "lan", "why": "x"}]})";
constexpr const wchar_t* kGrant = L"net:both/17/53535/lan";

// A datagram between the module and its like on another host.
Attempt Message(bool inbound, const std::wstring& remote) {
  Attempt attempt = Udp(Out(kModuleFile, remote, 53535));
  attempt.inbound = inbound;
  attempt.local_port = 53535;
  return attempt;
}

using Modules = Scenario;

TEST_F(Modules, ReachTheirPortInTheOwnNetworksAndNothingElse) {
  world.InstallModule(kManifest, kGrant);
  Config config = ConfigOf({});
  config.modules = {ApprovedModule(kGrant)};
  ASSERT_TRUE(world.StartWith(config));
  const auto expect = [this](const Attempt& attempt, bool passes) {
    EXPECT_EQ(world.Passes(attempt), passes) << Utf8FromWide(world.Explain(attempt));
  };
  for (const bool inbound : {false, true}) {
    for (const wchar_t* remote :
         {L"10.255.255.255", L"172.31.0.1", L"192.168.1.7", L"169.254.1.1", L"224.0.0.251",
          L"239.255.255.250", L"255.255.255.255", L"fe80::1", L"fd00::1", L"ff02::1"}) {
      expect(Message(inbound, remote), true);
    }
    for (const wchar_t* remote : {L"203.0.113.5", L"172.32.0.1", L"192.169.0.1", L"240.0.0.1",
                                  L"255.255.255.254", L"2001:db8::1", L"fec0::1"}) {
      expect(Message(inbound, remote), false);
    }
    std::vector<Attempt> others(5, Message(inbound, L"192.168.1.7"));
    others[0].protocol = 6;
    others[1].remote_port = 53534;
    others[2].local_port = 53536;
    others[3].program = kTool;
    others[4].program = L"C:\\Tools\\KSMessages.exe";
    for (const Attempt& other : others) expect(other, false);
  }
  const auto has_filters = [this] {
    return std::ranges::any_of(world.machine().engine.Filters(), [](const auto& filter) {
      return filter->name.find(L"Module: M ") != std::wstring::npos;
    });
  };
  EXPECT_TRUE(has_filters());
  config.enabled = false;
  EXPECT_TRUE(world.Set(config).Get("ok").boolean());
  EXPECT_FALSE(has_filters());
}

}  // namespace
}  // namespace kestrelon::test

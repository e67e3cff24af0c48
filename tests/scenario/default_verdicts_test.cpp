// What a fresh installation lets through, and that it lets nothing else through.
#include "base/text.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

struct Case {
  const wchar_t* program;
  bool inbound;
  std::uint8_t protocol;
  const wchar_t* remote;
  std::uint16_t local_port;  // for ICMP the message type
  std::uint16_t remote_port;
  bool passes;
};

constexpr bool kOut = false, kIn = true;
constexpr std::uint8_t kTcp = 6, kUdp = 17, kIcmp6 = 58;
constexpr std::uint16_t kAny = 50000;

class DefaultConfiguration : public Scenario {
 protected:
  void SetUp() override { ASSERT_TRUE(world.Start()); }

  void Expect(const Case& c) {
    Attempt attempt = Out(c.program, c.remote, c.remote_port);
    attempt.inbound = c.inbound;
    attempt.protocol = c.protocol;
    attempt.local_port = c.local_port;
    EXPECT_EQ(world.Passes(attempt), c.passes) << Utf8FromWide(world.Explain(attempt));
  }
};

TEST_F(DefaultConfiguration, LetsThroughWhatItsRulesNameAndNothingBesideThem) {
  const wchar_t* const other_host = L"C:\\Tools\\svchost.exe";
  const Case cases[] = {
      // an unknown program
      {kTool, kOut, kTcp, L"203.0.113.5", kAny, 443, false},
      {kTool, kIn, kTcp, L"2001:db8::5", 8080, kAny, false},
      {kTool, kOut, kTcp, L"127.0.0.1", kAny, 8080, false},  // an address alone is no loopback
      // DNS, from the configured server
      {kSvchost, kOut, kUdp, L"192.0.2.53", kAny, 53, true},
      {kSvchost, kOut, kTcp, L"192.0.2.53", kAny, 53, true},
      {kSvchost, kOut, kUdp, L"192.0.2.54", kAny, 53, false},
      {kSvchost, kOut, kUdp, L"192.0.2.53", kAny, 853, false},
      {kSvchost, kIn, kUdp, L"192.0.2.53", 53, kAny, false},
      {other_host, kOut, kUdp, L"192.0.2.53", kAny, 53, false},
      {kTool, kOut, kUdp, L"192.0.2.53", kAny, 53, false},
      // DHCP and DHCPv6, both ways between their ports
      {kSvchost, kOut, kUdp, L"203.0.113.1", 68, 67, true},
      {kSvchost, kIn, kUdp, L"203.0.113.1", 68, 67, true},
      {kSvchost, kOut, kUdp, L"2001:db8::1", 546, 547, true},
      {kSvchost, kIn, kUdp, L"2001:db8::1", 546, 547, true},
      {kSvchost, kOut, kUdp, L"203.0.113.1", 69, 67, false},
      {kSvchost, kOut, kTcp, L"203.0.113.1", 68, 67, false},
      {kTool, kOut, kUdp, L"203.0.113.1", 68, 67, false},
      // time
      {kSvchost, kOut, kUdp, L"203.0.113.7", kAny, 123, true},
      {kSvchost, kOut, kUdp, L"2001:db8::7", kAny, 123, true},
      {kSvchost, kOut, kTcp, L"203.0.113.7", kAny, 123, false},
      {kSvchost, kIn, kUdp, L"203.0.113.7", 123, kAny, false},
      // revocation checks
      {kLsass, kOut, kTcp, L"203.0.113.80", kAny, 80, true},
      {kLsass, kOut, kTcp, L"2001:db8::80", kAny, 80, true},
      {kLsass, kOut, kTcp, L"203.0.113.80", kAny, 443, false},
      {kLsass, kOut, kUdp, L"203.0.113.80", kAny, 80, false},
      {kLsass, kIn, kTcp, L"203.0.113.80", 80, kAny, false},
      // echo requests and redirects, beside the messages of neighbour discovery
      {kTool, kOut, kIcmp6, L"2001:db8::1", 128, 0, false},
      {kTool, kIn, kIcmp6, L"2001:db8::1", 137, 0, false},
      {kTool, kOut, kIcmp6, L"203.0.113.1", 133, 0, false},
  };
  for (const Case& c : cases) Expect(c);
  for (std::uint16_t type = 133; type <= 136; ++type) {
    Expect({L"System", kOut, kIcmp6, L"2001:db8::1", type, 0, true});
    Expect({kTool, kIn, kIcmp6, L"2001:db8::1", type, 0, true});
  }
}

TEST_F(DefaultConfiguration, TheLocalNetworkIsOpenToWindowsAlone) {
  for (const wchar_t* remote :
       {L"10.1.2.3", L"172.31.255.255", L"192.168.0.1", L"169.254.9.9", L"224.0.0.251",
        L"255.255.255.255", L"fe80::1", L"fd00::1", L"ff02::fb"}) {
    for (const bool inbound : {kOut, kIn}) {
      Expect({L"System", inbound, kTcp, remote, 445, 445, true});
      Expect({kSvchost, inbound, kUdp, remote, 5353, 5353, true});
      Expect({kTool, inbound, kTcp, remote, 445, 445, false});
    }
  }
  for (const wchar_t* remote : {L"172.32.0.1", L"11.0.0.1", L"192.169.0.1", L"2001:db8::9"}) {
    Expect({L"System", kOut, kTcp, remote, kAny, 445, false});
    Expect({kSvchost, kOut, kUdp, remote, kAny, 5353, false});
  }
}

}  // namespace
}  // namespace kestrelon::test

// What a fresh installation lets through, and that it lets nothing else through.
#include "base/text.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

struct Case {
  const char* claim;
  Attempt attempt;
  bool passes;
};

class DefaultConfiguration : public Scenario {
 protected:
  void Expect(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
      EXPECT_EQ(world.Passes(c.attempt), c.passes)
          << c.claim << ": " << Utf8FromWide(world.Explain(c.attempt));
    }
  }

  void SetUp() override { ASSERT_TRUE(world.Start()); }
};

Attempt WithPort(Attempt attempt, std::uint16_t local_port) {
  attempt.local_port = local_port;
  return attempt;
}

Attempt Icmp6(Attempt attempt, std::uint16_t type) {
  attempt.protocol = 58;
  attempt.local_port = type;
  attempt.remote_port = 0;
  return attempt;
}

TEST_F(DefaultConfiguration, BlocksAnUnknownProgramBothWaysOnBothFamilies) {
  Expect({
      {"out, IPv4", Out(kTool, L"203.0.113.5", 443), false},
      {"out, IPv6", Out(kTool, L"2001:db8::5", 443), false},
      {"in, IPv4", In(kTool, L"203.0.113.5", 8080), false},
      {"in, IPv6", In(kTool, L"2001:db8::5", 8080), false},
      {"the local network", Out(kTool, L"192.168.1.10", 445), false},
      {"the DNS server", Udp(Out(kTool, L"192.0.2.53", 53)), false},
  });
}

TEST_F(DefaultConfiguration, DnsReachesTheConfiguredServersAlone) {
  Expect({
      {"UDP", Udp(Out(kSvchost, L"192.0.2.53", 53)), true},
      {"TCP", Out(kSvchost, L"192.0.2.53", 53), true},
      {"another server", Udp(Out(kSvchost, L"192.0.2.54", 53)), false},
      {"another port", Udp(Out(kSvchost, L"192.0.2.53", 853)), false},
      {"inbound", Udp(In(kSvchost, L"192.0.2.53", 53)), false},
      {"another path", Udp(Out(L"C:\\Tools\\svchost.exe", L"192.0.2.53", 53)), false},
      {"another name", Udp(Out(L"C:\\Windows\\System32\\svchost2.exe", L"192.0.2.53", 53)), false},
  });
}

TEST_F(DefaultConfiguration, DhcpPassesBothWaysBetweenItsPorts) {
  const Attempt v4 = WithPort(Udp(Out(kSvchost, L"203.0.113.1", 67)), 68);
  Attempt v4_in = v4;
  v4_in.inbound = true;
  const Attempt v6 = WithPort(Udp(Out(kSvchost, L"2001:db8::1", 547)), 546);
  Attempt v6_in = v6;
  v6_in.inbound = true;
  Attempt tcp = v4;
  tcp.protocol = 6;
  Attempt other_program = v4;
  other_program.program = kTool;
  Expect({
      {"DHCP out", v4, true},
      {"DHCP in", v4_in, true},
      {"DHCPv6 out", v6, true},
      {"DHCPv6 in", v6_in, true},
      {"from another port", WithPort(v4, 69), false},
      {"over TCP", tcp, false},
      {"another program", other_program, false},
  });
}

TEST_F(DefaultConfiguration, TimeGoesOutOverUdpAlone) {
  Expect({
      {"NTP", Udp(Out(kSvchost, L"203.0.113.7", 123)), true},
      {"NTP over IPv6", Udp(Out(kSvchost, L"2001:db8::7", 123)), true},
      {"over TCP", Out(kSvchost, L"203.0.113.7", 123), false},
      {"inbound", Udp(In(kSvchost, L"203.0.113.7", 123)), false},
  });
}

TEST_F(DefaultConfiguration, NeighbourDiscoveryPassesForAnyProgramByMessageType) {
  std::vector<Case> cases;
  for (std::uint16_t type = 133; type <= 136; ++type) {
    cases.push_back({"solicitation or advertisement out",
                     Icmp6(Out(L"System", L"2001:db8::1", 0), type), true});
    cases.push_back(
        {"solicitation or advertisement in", Icmp6(In(kTool, L"2001:db8::1", 0), type), true});
  }
  cases.push_back({"echo request", Icmp6(Out(kTool, L"2001:db8::1", 0), 128), false});
  cases.push_back({"redirect", Icmp6(In(kTool, L"2001:db8::1", 0), 137), false});
  Attempt v4 = Out(kTool, L"203.0.113.1", 0);
  v4.protocol = 58;
  v4.local_port = 133;
  cases.push_back({"the protocol on IPv4", v4, false});
  Expect(cases);
}

TEST_F(DefaultConfiguration, TheLocalNetworkIsOpenToWindowsAlone) {
  std::vector<Case> cases;
  for (const wchar_t* remote :
       {L"10.1.2.3", L"172.31.255.255", L"192.168.0.1", L"169.254.9.9", L"224.0.0.251",
        L"255.255.255.255", L"fe80::1", L"fd00::1", L"ff02::fb"}) {
    cases.push_back({"kernel out", Out(L"System", remote, 445), true});
    cases.push_back({"kernel in", In(L"System", remote, 445), true});
    cases.push_back({"services out", Udp(Out(kSvchost, remote, 5353)), true});
    cases.push_back({"services in", Udp(In(kSvchost, remote, 5353)), true});
    cases.push_back({"anything else", Out(kTool, remote, 445), false});
  }
  for (const wchar_t* remote : {L"172.32.0.1", L"11.0.0.1", L"192.169.0.1", L"2001:db8::9"}) {
    cases.push_back({"kernel beyond it", Out(L"System", remote, 445), false});
    cases.push_back({"services beyond it", Udp(Out(kSvchost, remote, 5353)), false});
  }
  Expect(cases);
}

TEST_F(DefaultConfiguration, RevocationChecksGoOutFromLsassOnPort80) {
  Expect({
      {"port 80", Out(kLsass, L"203.0.113.80", 80), true},
      {"IPv6", Out(kLsass, L"2001:db8::80", 80), true},
      {"port 443", Out(kLsass, L"203.0.113.80", 443), false},
      {"UDP", Udp(Out(kLsass, L"203.0.113.80", 80)), false},
      {"inbound", In(kLsass, L"203.0.113.80", 80), false},
      {"another lsass", Out(L"C:\\Tools\\lsass.exe", L"203.0.113.80", 80), false},
  });
}

TEST_F(DefaultConfiguration, LoopbackPassesForEverybody) {
  Expect({
      {"out", Loopback(Out(kTool, L"127.0.0.1", 8080)), true},
      {"in", Loopback(In(kTool, L"127.0.0.1", 8080)), true},
      {"IPv6", Loopback(Out(kTool, L"::1", 8080)), true},
      {"the address alone is no loopback", Out(kTool, L"127.0.0.1", 8080), false},
  });
}

}  // namespace
}  // namespace kestrelon::test

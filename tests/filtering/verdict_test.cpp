// What the installed filters do to connections.

#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

using platform::kLayerConnectV4;
using platform::kLayerConnectV6;
using platform::kLayerRecvAcceptV4;
using platform::kLayerRecvAcceptV6;
using simulation::Connection;

constexpr Guid kAllLayers[] = {kLayerConnectV4, kLayerConnectV6, kLayerRecvAcceptV4,
                               kLayerRecvAcceptV6};

class Verdicts : public FilterWorld {};

TEST_F(Verdicts, NothingPassesWithoutARule) {
  Install({}, {});
  for (const Guid& layer : kAllLayers) {
    for (const int protocol : {1, 6, 17, 47, 58}) {
      Connection connection = AppConnection(layer);
      connection.protocol = static_cast<std::uint8_t>(protocol);
      const bool outbound = layer == kLayerConnectV4 || layer == kLayerConnectV6;
      EXPECT_FALSE(Passes(connection));
      EXPECT_EQ(DecidedBy(connection),
                outbound ? L"Kestrelon - Block all outbound" : L"Kestrelon - Block all inbound");
    }
  }
}

// An allow rule of many conditions, which would win if its weight were no lower.
RuleEntry NarrowRule() {
  RuleEntry rule = Rule(true, L"198.51.100.7, 2001:db8::7");
  rule.protocol = 6;
  rule.remote_ports = L"443";
  rule.app = kApp;
  return rule;
}

TEST_F(Verdicts, TheWeightAloneDecidesBetweenFilters) {
  struct Case {
    const char* claim;
    std::vector<RuleEntry> rules;
    std::vector<PlanEntry> entries;
    bool loopback;
    const wchar_t* decided_by;
    bool passes;
  };
  const RuleEntry allow = Rule(true);
  const RuleEntry narrow = NarrowRule();
  const RuleEntry block = Rule(false);
  const PlanEntry app = AllowedApp(true);
  const PlanEntry blocked = BlockedApp();
  const PlanEntry held = HeldApp();
  const wchar_t* held_back = L"Integrity block app.exe";
  const Case cases[] = {
      {"a permitted app beats the default", {}, {app}, false, L"Allow app.exe", true},
      {"an allow rule does", {allow}, {}, false, L"Rule: allow", true},
      {"a blocked app beats an allow rule", {narrow}, {blocked}, false, L"Block app.exe", false},
      {"a block rule beats a permitted app", {block}, {app}, false, L"Rule: block", false},
      {"and an allow rule before it", {narrow, block}, {}, false, L"Rule: block", false},
      {"and stands before a blocked app", {block}, {blocked}, false, L"Rule: block", false},
      {"loopback beats a block rule", {block}, {}, true, L"Loopback", true},
      {"loopback beats a blocked app", {}, {blocked}, true, L"Loopback", true},
      {"a held-back file is blocked on loopback", {allow}, {held}, true, held_back, false},
      {"and under an allow rule", {narrow}, {held}, false, held_back, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.claim);
    Install(c.rules, c.entries);
    for (const Guid& layer : kAllLayers) {
      Connection connection = AppConnection(layer);
      if (c.loopback) connection.flags = platform::kConditionFlagLoopback;
      EXPECT_EQ(Passes(connection), c.passes);
      EXPECT_EQ(DecidedBy(connection), std::wstring(L"Kestrelon - ") + c.decided_by);
    }
  }
}

TEST_F(Verdicts, APermittedAppPassesOutwardAndInwardOnlyIfAsked) {
  for (const bool inbound : {false, true}) {
    Install({}, {AllowedApp(inbound)});
    EXPECT_TRUE(Passes(AppConnection(kLayerConnectV4)));
    EXPECT_TRUE(Passes(AppConnection(kLayerConnectV6)));
    EXPECT_EQ(Passes(AppConnection(kLayerRecvAcceptV4)), inbound);
    EXPECT_EQ(Passes(AppConnection(kLayerRecvAcceptV6)), inbound);
    Connection other = AppConnection();
    other.app_id = DeviceAppId(L"\\device\\harddiskvolume3\\app\\other.exe");
    EXPECT_FALSE(Passes(other));
  }
}

using R = RuleEntry;
using C = Connection;
constexpr Guid kOut4 = kLayerConnectV4;
constexpr Guid kOut6 = kLayerConnectV6;
constexpr Guid kIn4 = kLayerRecvAcceptV4;
constexpr Guid kIn6 = kLayerRecvAcceptV6;

// One allow rule, narrowed in one respect, and connections on both sides of its border.
struct Narrowing {
  const char* claim;
  bool passes;
  Guid layer;
  void (*narrow)(R&);
  void (*aim)(C&) = nullptr;  // none: the connection as it is
};

const Narrowing kNarrowings[] = {
    {"outbound rule outward", true, kOut6, [](R& r) { r.direction = kDirectionOut; }},
    {"outbound rule inward", false, kIn4, [](R& r) { r.direction = kDirectionOut; }},
    {"inbound rule inward", true, kIn6, [](R& r) { r.direction = kDirectionIn; }},
    {"inbound rule outward", false, kOut4, [](R& r) { r.direction = kDirectionIn; }},
    {"one IPv4 address", true, kOut4, [](R& r) { r.remote = L"198.51.100.7"; }},
    {"its neighbour", false, kOut4, [](R& r) { r.remote = L"198.51.100.7"; },
     [](C& c) { c.remote_v4 += 1; }},
    {"IPv4 addresses say nothing of IPv6", false, kOut6, [](R& r) { r.remote = L"0.0.0.0/0"; }},
    {"last of a network", true, kIn4, [](R& r) { r.remote = L"198.51.100.0/29"; }},
    {"first behind a network", false, kIn4, [](R& r) { r.remote = L"198.51.100.0/29"; },
     [](C& c) { c.remote_v4 += 1; }},
    {"one of two ranges", true, kOut4,
     [](R& r) { r.remote = L"192.0.2.1-192.0.2.9, 198.51.100.1-198.51.100.7"; }},
    {"IPv6 network with host bits", true, kOut6, [](R& r) { r.remote = L"2001:db8::1/64"; }},
    {"outside an IPv6 network", false, kOut6, [](R& r) { r.remote = L"2001:db8::1/64"; },
     [](C& c) { c.remote_v6[7] = 1; }},
    {"a remote port", true, kOut4, [](R& r) { r.remote_ports = L"80, 443"; }},
    {"end of a port range", true, kOut4, [](R& r) { r.remote_ports = L"80, 400-443"; }},
    {"behind a port range", false, kOut4, [](R& r) { r.remote_ports = L"80, 400-443"; },
     [](C& c) { c.remote_port = 444; }},
    {"a local port", true, kIn4, [](R& r) { r.local_ports = L"50000"; }},
    {"another local port", false, kIn4, [](R& r) { r.local_ports = L"443"; }},
    {"address and port together", false, kOut4,
     [](R& r) { r.remote = L"198.51.100.7", r.remote_ports = L"80"; }},
    {"a protocol", true, kOut4, [](R& r) { r.protocol = 17; }, [](C& c) { c.protocol = 17; }},
    {"another protocol", false, kOut4, [](R& r) { r.protocol = 17; }},
    {"ICMP", true, kOut4, [](R& r) { r.protocol = 1; }, [](C& c) { c.protocol = 1; }},
    {"ICMP is not for IPv6", false, kOut6, [](R& r) { r.protocol = 1; },
     [](C& c) { c.protocol = 1; }},
    {"ICMPv6", true, kOut6, [](R& r) { r.protocol = 58; }, [](C& c) { c.protocol = 58; }},
    {"ICMPv6 is not for IPv4", false, kOut4, [](R& r) { r.protocol = 58; },
     [](C& c) { c.protocol = 58; }},
    {"the rule's app", true, kOut4, [](R& r) { r.app = L"%SystemDrive%\\App\\app.exe"; }},
    {"another app", false, kOut4, [](R& r) { r.app = kOtherApp; }},
    {"the kernel", true, kOut4, [](R& r) { r.app = L"SYSTEM"; },
     [](C& c) { c.app_id = DeviceAppId(L"System"); }},
    {"the rule's user", true, kOut4, [](R& r) { r.user = L"S-1-5-18"; }},
    {"another user", false, kOut4, [](R& r) { r.user = L"S-1-5-19"; }},
    {"a user that makes no sense", false, kOut4, [](R& r) { r.user = L"nobody"; }},
    {"a rule that is off", false, kOut4, [](R& r) { r.enabled = false; }},
};

TEST_F(Verdicts, ARulePassesWhatItNamesAndNothingElse) {
  for (const Narrowing& n : kNarrowings) {
    SCOPED_TRACE(n.claim);
    RuleEntry rule = Rule(true);
    n.narrow(rule);
    Install({rule}, {});
    EXPECT_TRUE(warnings_.empty());
    Connection connection = AppConnection(n.layer);
    if (n.aim != nullptr) n.aim(connection);
    EXPECT_EQ(Passes(connection), n.passes);
  }
}

TEST_F(Verdicts, ADropInsideTheSharedProcessNamesTheService) {
  Install({}, {});
  std::wstring sid;
  ASSERT_EQ(platform::SidOfAccount(L"NT SERVICE\\Dnscache", sid), platform::kSuccess);
  for (const Guid& layer : {kLayerConnectV4, kLayerConnectV6}) {
    Connection connection = AppConnection(layer);
    connection.app_id = DeviceAppId(L"\\device\\harddiskvolume3\\windows\\system32\\svchost.exe");
    connection.user_sids.push_back(SidOf(sid));
    EXPECT_EQ(DecidedBy(connection), L"Kestrelon - Block service Dnscache");
  }
}

TEST_F(Verdicts, APackageIsMatchedByItsSid) {
  constexpr const wchar_t* kPackage = L"S-1-15-2-1-2-3-4-5-6-7";
  PlanEntry entry;
  entry.path = L"package:Contoso.App";
  entry.allow = true;
  entry.package_sid = kPackage;
  entry.label = L"app package Contoso.App";
  Install({}, {entry});
  Connection connection = AppConnection();
  EXPECT_FALSE(Passes(connection));
  connection.package_sid = SidOf(kPackage);
  EXPECT_TRUE(Passes(connection));
}

}  // namespace
}  // namespace kestrelon

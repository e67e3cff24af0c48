// What the installed filters do to connections.

#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

using platform::kLayerConnectV4;
using platform::kLayerConnectV6;
using platform::kLayerRecvAcceptV4;
using platform::kLayerRecvAcceptV6;
using simulation::Connection;

class Verdicts : public FilterWorld {};

TEST_F(Verdicts, TheWeightAloneDecidesBetweenFilters) {
  // An allow rule of many conditions, which would win if its weight were no lower.
  RuleEntry narrow = Rule(true, L"198.51.100.7, 2001:db8::7");
  narrow.protocol = 6;
  narrow.remote_ports = L"443";
  narrow.app = kApp;
  const RuleEntry allow = Rule(true);
  const RuleEntry block = Rule(false);
  const wchar_t* held_back = L"Integrity block app.exe";
  struct Case {
    const char* claim;
    std::vector<RuleEntry> rules;
    std::vector<PlanEntry> entries;
    bool loopback;
    const wchar_t* decided_by;
  };
  const Case cases[] = {
      {"a permitted app beats the default", {}, {AllowedApp(true)}, false, L"Allow app.exe"},
      {"a blocked app beats an allow rule", {narrow}, {BlockedApp()}, false, L"Block app.exe"},
      {"a block rule beats a permitted app", {block}, {AllowedApp(true)}, false, L"Rule: block"},
      {"and an allow rule before it", {narrow, block}, {}, false, L"Rule: block"},
      {"and stands before a blocked app", {block}, {BlockedApp()}, false, L"Rule: block"},
      {"loopback beats them", {block}, {BlockedApp()}, true, L"Loopback"},
      {"a held-back file is blocked on loopback", {allow}, {HeldApp()}, true, held_back},
      {"and under an allow rule", {narrow}, {HeldApp()}, false, held_back},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.claim);
    Install(c.rules, c.entries);
    for (const Guid& layer :
         {kLayerConnectV4, kLayerConnectV6, kLayerRecvAcceptV4, kLayerRecvAcceptV6}) {
      Connection connection = AppConnection(layer);
      if (c.loopback) connection.flags = platform::kConditionFlagLoopback;
      EXPECT_EQ(DecidedBy(connection), std::wstring(L"Kestrelon - ") + c.decided_by);
    }
  }
}

// Ways to write a rule which the comparison of random configurations does not draw.
TEST_F(Verdicts, ARulePassesWhatItNamesAndNothingElse) {
  using R = RuleEntry;
  struct Case {
    const char* claim;
    bool passes;
    void (*narrow)(R& rule);
    Guid layer = kLayerConnectV4;
    const wchar_t* program = L"\\device\\harddiskvolume3\\app\\app.exe";
  };
  const Case cases[] = {
      {"its app", true, [](R& r) { r.app = L"%SystemDrive%\\App\\app.exe"; }},
      {"another app", false, [](R& r) { r.app = kOtherApp; }},
      {"the kernel", true, [](R& r) { r.app = L"SYSTEM"; }, kLayerConnectV4, L"System"},
      {"a user that makes no sense", false, [](R& r) { r.user = L"nobody"; }},
      {"a network with host bits", true, [](R& r) { r.remote = L"2001:db8::1/64"; },
       kLayerConnectV6},
      {"IPv4 says nothing of IPv6", false, [](R& r) { r.remote = L"0.0.0.0/0"; }, kLayerConnectV6},
      {"the second of two ranges", true,
       [](R& r) { r.remote = L"192.0.2.1-192.0.2.9, 198.51.100.1-198.51.100.7"; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.claim);
    RuleEntry rule = Rule(true);
    c.narrow(rule);
    Install({rule}, {});
    EXPECT_TRUE(warnings_.empty());
    Connection connection = AppConnection(c.layer);
    connection.app_id = DeviceAppId(c.program);
    EXPECT_EQ(Passes(connection), c.passes);
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

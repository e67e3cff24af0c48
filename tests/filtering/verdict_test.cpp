// What the installed filters do to connections, beyond the comparison of random configurations.

#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

using platform::kLayerConnectV4;
using platform::kLayerConnectV6;
using simulation::Connection;

class Verdicts : public FilterWorld {};

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

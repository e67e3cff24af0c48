// What the installed filters do to connections, beyond the comparison of random configurations.

#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

using platform::kLayerConnectV4;
using platform::kLayerConnectV6;
using simulation::Connection;

class Verdicts : public FilterWorld {};

TEST_F(Verdicts, ARuleForAUserThatMakesNoSensePassesNobody) {
  RuleEntry rule = Rule(true);
  rule.user = L"nobody";
  Install({rule}, {});
  EXPECT_FALSE(Passes(AppConnection()));
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

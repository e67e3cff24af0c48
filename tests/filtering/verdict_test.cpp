// What the installed filters do to connections, beyond the comparison of random configurations.

#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

using simulation::Connection;

class Verdicts : public FilterWorld {};

TEST_F(Verdicts, ARuleForAUserThatMakesNoSensePassesNobody) {
  RuleEntry rule = Rule(true);
  rule.user = L"nobody";
  Install({rule}, {});
  EXPECT_FALSE(Passes(AppConnection()));
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

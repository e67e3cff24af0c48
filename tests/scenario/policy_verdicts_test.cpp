// What the user's own entries and switches do to connections.
#include "base/text.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

class Policy : public Scenario {
 protected:
  // Starts the service under this configuration.
  void StartWith(const Config& config) {
    world.PutConfig(config);
    ASSERT_TRUE(world.Start());
  }

  void ExpectPass(const Attempt& attempt) {
    EXPECT_TRUE(world.Passes(attempt)) << Utf8FromWide(world.Explain(attempt));
  }
  void ExpectBlock(const Attempt& attempt) {
    EXPECT_FALSE(world.Passes(attempt)) << Utf8FromWide(world.Explain(attempt));
  }
};

TEST_F(Policy, AnAllowedApplicationGoesOutAndComesInOnlyWhenSaid) {
  Config config;
  config.apps = {Allowed(kTool), Allowed(kOther)};
  config.apps[1].inbound = true;
  StartWith(config);
  ExpectPass(Out(kTool, L"203.0.113.5", 443));
  ExpectPass(Udp(Out(kTool, L"2001:db8::5", 443)));
  ExpectBlock(In(kTool, L"203.0.113.5", 8080));
  ExpectPass(In(kOther, L"203.0.113.5", 8080));
  ExpectBlock(Out(kBrowser, L"203.0.113.5", 443));
}

TEST_F(Policy, ABlockRuleBeatsAnAllowedApplicationAndAnAllowingRule) {
  Config config;
  config.apps = {Allowed(kTool)};
  config.rules = {AllowRule(L"open"), BlockRule(L"closed")};
  config.rules[0].remote = L"198.51.100.0/24, 203.0.113.0/24";
  config.rules[1].remote = L"203.0.113.0/24";
  StartWith(config);
  ExpectBlock(Out(kTool, L"203.0.113.5", 443));
  ExpectBlock(Out(kOther, L"203.0.113.5", 443));
  ExpectPass(Out(kTool, L"192.0.2.1", 443));
  ExpectPass(Out(kOther, L"198.51.100.7", 443));
}

TEST_F(Policy, ABlockedApplicationBeatsAnAllowingRule) {
  Config config;
  config.apps = {Blocked(kTool)};
  config.rules = {AllowRule(L"everything")};
  StartWith(config);
  ExpectBlock(Out(kTool, L"203.0.113.5", 443));
  ExpectBlock(In(kTool, L"2001:db8::5", 443));
  ExpectPass(Out(kOther, L"203.0.113.5", 443));
}

TEST_F(Policy, LoopbackFollowsItsSwitchAndBeatsBlockRules) {
  Config config;
  config.rules = {BlockRule(L"everything")};
  StartWith(config);
  ExpectPass(Loopback(Out(kTool, L"127.0.0.1", 80)));
  config.allow_loopback = false;
  EXPECT_TRUE(world.Set(config)["ok"].boolean());
  ExpectBlock(Loopback(Out(kTool, L"127.0.0.1", 80)));
  ExpectBlock(Loopback(In(kTool, L"::1", 80)));
}

TEST_F(Policy, AHeldBackFileIsBlockedEvenOnLoopback) {
  Config config;
  config.apps = {Allowed(kTool)};
  config.apps[0].sha256 = {HashText("another content")};
  config.rules = {AllowRule(L"everything")};
  StartWith(config);
  ExpectBlock(Loopback(Out(kTool, L"127.0.0.1", 80)));
  ExpectBlock(Loopback(In(kTool, L"::1", 80)));
  ExpectBlock(Out(kTool, L"203.0.113.5", 443));
  ExpectPass(Loopback(Out(kOther, L"127.0.0.1", 80)));
}

TEST_F(Policy, ARuleOnOneFamilyOpensNothingOnTheOther) {
  Config config;
  config.rules = {AllowRule(L"four"), AllowRule(L"six"), AllowRule(L"ping"), AllowRule(L"ping6")};
  config.rules[0].remote = L"0.0.0.0/0";
  config.rules[0].remote_ports = L"1000";
  config.rules[1].remote = L"::/0";
  config.rules[1].remote_ports = L"2000";
  config.rules[2].protocol = 1;
  config.rules[3].protocol = 58;
  StartWith(config);
  ExpectPass(Out(kTool, L"203.0.113.5", 1000));
  ExpectBlock(Out(kTool, L"2001:db8::5", 1000));
  ExpectPass(Out(kTool, L"2001:db8::5", 2000));
  ExpectBlock(Out(kTool, L"203.0.113.5", 2000));
  Attempt ping = Out(kTool, L"2001:db8::5", 0);
  ping.protocol = 1;
  ExpectBlock(ping);
  Attempt ping6 = Out(kTool, L"203.0.113.5", 0);
  ping6.protocol = 58;
  ExpectBlock(ping6);
}

TEST_F(Policy, ProtectionOffLeavesNoFilterAndOnBringsThemBack) {
  Config config;
  StartWith(config);
  ExpectBlock(Out(kTool, L"203.0.113.5", 443));
  config.enabled = false;
  EXPECT_TRUE(world.Set(config)["ok"].boolean());
  EXPECT_TRUE(world.machine().engine.Filters().empty());
  EXPECT_TRUE(world.Logged(L"Protection turned OFF"));
  config.enabled = true;
  EXPECT_TRUE(world.Set(config)["ok"].boolean());
  ExpectBlock(Out(kTool, L"203.0.113.5", 443));
  EXPECT_TRUE(world.Logged(L"Protection turned ON"));
}

TEST_F(Policy, AServiceIsToldApartInsideTheSharedHost) {
  Config config;
  config.apps = {Allowed(L"service:Dnscache")};
  StartWith(config);
  Attempt dnscache = Out(kSvchost, L"203.0.113.5", 443);
  dnscache.users = {world.facts().service_sids.at(L"dnscache")};
  ExpectPass(dnscache);
  ExpectBlock(Out(kSvchost, L"203.0.113.5", 443));
  Attempt impostor = Out(kTool, L"203.0.113.5", 443);
  impostor.users = dnscache.users;
  ExpectBlock(impostor);
}

TEST_F(Policy, AUserRuleAppliesToThatUserAlone) {
  Config config;
  config.rules = {AllowRule(L"signed-in user")};
  config.rules[0].user = L"S-1-5-4";
  StartWith(config);
  Attempt user = Out(kTool, L"203.0.113.5", 443);
  ExpectBlock(user);
  user.users = {L"S-1-5-4"};
  ExpectPass(user);
}

TEST_F(Policy, AStoppedServiceAndARestartedMachineStayProtected) {
  Config config;
  config.apps = {Allowed(kTool)};
  StartWith(config);
  world.Stop();
  ExpectBlock(Out(kOther, L"203.0.113.5", 443));
  ExpectPass(Out(kTool, L"203.0.113.5", 443));
  world.Restart();
  ExpectBlock(Out(kOther, L"203.0.113.5", 443));
  ExpectPass(Out(kTool, L"203.0.113.5", 443));
}

TEST_F(Policy, AStrictFallbackBlocksAllButLoopback) {
  world.machine().files.Write(kConfigFile, "{ damaged");
  ASSERT_TRUE(world.Start());
  ExpectBlock(Udp(Out(kSvchost, L"192.0.2.53", 53)));
  ExpectBlock(Out(L"System", L"192.168.1.1", 445));
  ExpectPass(Loopback(Out(kTool, L"127.0.0.1", 80)));
}

}  // namespace
}  // namespace kestrelon::test

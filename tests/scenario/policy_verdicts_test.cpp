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

// The session and the locks on provider and sublayer.

#include "filtering/filter_engine.h"

#include "base/text.h"
#include "platform/wait.h"
#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

using EngineSession = FilterWorld;

TEST_F(EngineSession, TheLogHearsOfALockOutcomeOnlyWhenItChanges) {
  Install({}, {});
  Install({}, {});
  EXPECT_EQ(LogCount("WFP provider locked (administrators may not delete or change it)"), 1u);
  EXPECT_EQ(LogCount("WFP sublayer locked (administrators may not delete or change it)"), 1u);
  machine_.faults.FailAlways("SetProviderDacl", platform::kAccessDenied);
  Install({}, {});
  Install({}, {});
  EXPECT_EQ(LogCount("Locking the WFP provider failed: 0x00000005"), 1u);
  machine_.faults.Clear();
  Install({}, {});
  EXPECT_EQ(LogCount("WFP provider locked"), 2u);
  EXPECT_EQ(LogCount("WFP sublayer locked"), 1u);
}

TEST_F(EngineSession, AnAdministratorLeavesTheLocksAlone) {
  CloseEngine(TheEngine);
  machine_.token.local_system = false;
  machine_.faults.FailAlways("SetProviderDacl", platform::kAccessDenied);
  ASSERT_TRUE(OpenEngine(TheEngine, error_));
  EXPECT_FALSE(machine_.faults.fired());
  EXPECT_EQ(LogCount("WFP"), 0u);
  // Whether he is told that the sublayer is there, or first that he may not link to its provider.
  CloseEngine(TheEngine);
  machine_.faults.Clear();
  machine_.faults.FailOnce("AddSublayer", platform::kAccessDenied);
  EXPECT_TRUE(OpenEngine(TheEngine, error_)) << Utf8FromWide(error_);
  EXPECT_TRUE(machine_.faults.fired());
}

TEST_F(EngineSession, AMissingSubscriptionIsNoFailure) {
  platform::Event changed(platform::Event::Reset::kAutomatic);
  CloseEngine(TheEngine);
  TheEngine.change_event = &changed;
  machine_.faults.FailOnce("SubscribeFilterChanges", platform::kAccessDenied);
  EXPECT_TRUE(OpenEngine(TheEngine, error_));
  EXPECT_TRUE(machine_.faults.fired());
  CloseEngine(TheEngine);
  TheEngine.change_event = nullptr;
}

}  // namespace
}  // namespace kestrelon

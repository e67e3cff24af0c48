// The session and the locks on provider and sublayer.

#include "filtering/filter_engine.h"

#include "base/text.h"
#include "filtering/filter_keys.h"
#include "platform/wait.h"
#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

class EngineSession : public FilterWorld {
 protected:
  ~EngineSession() override {
    CloseEngine(TheEngine);
    TheEngine.change_event = nullptr;
  }
  // Opens the session anew with an event for changes.
  bool OpenSubscribed() {
    CloseEngine(TheEngine);
    TheEngine.change_event = &changed_;
    return OpenEngine(TheEngine, error_);
  }

  platform::Event changed_{platform::Event::Reset::kAutomatic};
};

TEST_F(EngineSession, AFailedOpenLeavesItClosed) {
  CloseEngine(TheEngine);
  const std::pair<const char*, const wchar_t*> cases[] = {
      {"OpenEngineSession", L"FwpmEngineOpen0: 0x000006D9"},
      {"AddProvider", L"FwpmProviderAdd0: 0x000006D9"},
      {"AddSublayer", L"FwpmSubLayerAdd0: 0x000006D9"},
  };
  for (const auto& [call, sentence] : cases) {
    machine_.faults.FailOnce(call, platform::kEndpointNotRegistered);
    EXPECT_FALSE(OpenEngine(TheEngine, error_)) << call;
    EXPECT_TRUE(error_.starts_with(sentence)) << Utf8FromWide(error_);
    EXPECT_FALSE(EngineIsOpen(TheEngine));
    EXPECT_EQ(machine_.engine.open_sessions(), 0u);
  }
}

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
}

TEST_F(EngineSession, TheEventIsSetByChangesOfOthersAlone) {
  machine_.clock.Run();
  ASSERT_TRUE(OpenSubscribed());
  Install({}, {});
  EXPECT_EQ(platform::WaitForAny({&changed_}, 100), platform::kWaitTimedOut);
  platform::EngineHandle other = 0;
  ASSERT_EQ(platform::OpenEngineSession({}, other), platform::kSuccess);
  EXPECT_EQ(platform::DeleteFilter(other, machine_.engine.Filters().front()->key),
            platform::kSuccess);
  EXPECT_EQ(platform::WaitForAny({&changed_}, 10000), 0);
  platform::CloseEngineSession(other);
}

TEST_F(EngineSession, AMissingSubscriptionIsNoFailure) {
  machine_.faults.FailOnce("SubscribeFilterChanges", platform::kAccessDenied);
  EXPECT_TRUE(OpenSubscribed());
  EXPECT_TRUE(machine_.faults.fired());
}

}  // namespace
}  // namespace kestrelon

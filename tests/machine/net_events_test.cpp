// What each form of the record leaves out. The rest is told by the reports made of it.
#include "platform/net_events.h"

#include <gtest/gtest.h>

#include <vector>

#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

// The fields that an event says it has.
void Note(void* context, const kestrelon::platform::NetEvent* event) {
  EXPECT_EQ(event->package_sid.empty(), (event->flags & kEventHasPackageId) == 0);
  static_cast<std::vector<std::uint32_t>*>(context)->push_back(event->flags);
}

TEST(MachineNetEvents, AreAsCompleteAsTheirRecord) {
  TheMachine().token.elevated = true;
  EngineHandle session = 0;
  ASSERT_EQ(OpenEngineSession({L"Test", 0, 0}, session), kSuccess);
  Filter block;
  block.name = L"Filter";
  block.layer = kLayerConnectV6;
  block.weight = std::uint8_t{1};
  block.action = kActionBlock;
  std::uint64_t id = 0;
  ASSERT_EQ(AddFilter(session, block, {}, id), kSuccess);
  ASSERT_EQ(SetOption(session, kNetEventKeywords, kKeywordClassifyAllow), kSuccess);
  const Connection dropped{
      .layer = kLayerConnectV6, .app_id = {'a', 0, 0, 0}, .package_sid = MakeSid(15, {2, 1})};
  SubscriptionHandle subscription = 0;
  for (const bool newest : {true, false}) {
    TheMachine().environment.engine_has_newest_events = newest;
    const auto record = newest ? NetEventRecord::kNewest : NetEventRecord::kOldest;
    std::vector<std::uint32_t> heard;
    ASSERT_EQ(SubscribeNetEvents(session, record, Note, &heard, subscription), kSuccess);
    EXPECT_FALSE(TheMachine().engine.Classify(dropped).permit);
    EXPECT_TRUE(TheMachine().engine.Classify({}).permit);
    TheMachine().engine.WaitForNotifications();
    EXPECT_EQ(UnsubscribeNetEvents(session, subscription), kSuccess);
    const std::vector<std::uint32_t> expected =
        newest ? std::vector{0x53Fu, 0x11Fu} : std::vector{0x13Fu};
    EXPECT_EQ(heard, expected);
  }
}

}  // namespace
}  // namespace simulation

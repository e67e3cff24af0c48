// What subscribers hear of the connections that are put to the machine's engine.
#include "platform/net_events.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/format.h"
#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;
using Event = kestrelon::platform::NetEvent;

// Type, fields, family, protocol, addresses, ports, sizes of program and package, filter, loopback.
std::wstring TextOf(const Event& e) {
  const bool v6 = e.ip_version == kIpV6;
  return kestrelon::Format(
      L"%u 0x%08X v%u %u %u:%u %u:%u %zu %zu %u %u", e.type, e.flags, e.ip_version,
      std::uint32_t{e.protocol}, v6 ? e.local_v6[15] : e.local_v4, std::uint32_t{e.local_port},
      v6 ? e.remote_v6[15] : e.remote_v4, std::uint32_t{e.remote_port}, e.app_id.size(),
      e.package_sid.size(), static_cast<std::uint32_t>(e.classification->filter_id),
      std::uint32_t{e.classification->is_loopback});
}

void Note(void* context, const Event* event) {
  EXPECT_EQ(event->time, TheMachine().clock.SystemTime());
  static_cast<std::vector<std::wstring>*>(context)->push_back(TextOf(*event));
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
  Connection dropped{.layer = kLayerConnectV6,
                     .app_id = {'a', 0, 0, 0},
                     .package_sid = MakeSid(15, {2, 1}),
                     .protocol = 17,
                     .local_port = 3,
                     .remote_port = 4,
                     .flags = kConditionFlagLoopback};
  dropped.local_v6[15] = 1;
  dropped.remote_v6[15] = 2;
  SubscriptionHandle subscription = 0;
  for (const bool newest : {true, false}) {
    TheMachine().environment.engine_has_newest_events = newest;
    const auto record = newest ? NetEventRecord::kNewest : NetEventRecord::kOldest;
    std::vector<std::wstring> heard;
    ASSERT_EQ(SubscribeNetEvents(session, record, Note, &heard, subscription), kSuccess);
    EXPECT_FALSE(TheMachine().engine.Classify(dropped).permit);
    EXPECT_TRUE(TheMachine().engine.Classify({.remote_v4 = 5}).permit);
    TheMachine().engine.WaitForNotifications();
    EXPECT_EQ(UnsubscribeNetEvents(session, subscription), kSuccess);
    const std::vector<std::wstring> newest_record = {L"3 0x0000053F v1 17 1:3 2:4 4 16 65536 1",
                                                     L"6 0x0000011F v0 6 0:0 5:0 0 0 0 0"};
    const std::vector<std::wstring> oldest_record = {L"3 0x0000013F v1 17 1:3 2:4 4 0 65536 1"};
    EXPECT_EQ(heard, newest ? newest_record : oldest_record);
  }
  EXPECT_EQ(SubscribeNetEvents(session, NetEventRecord::kNewest, Note, nullptr, subscription),
            kProcedureNotFound);
}

}  // namespace
}  // namespace simulation

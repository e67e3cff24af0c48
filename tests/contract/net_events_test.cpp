// The filtering engine's reports: options, subscriptions, and the numbers that name layers.
#include "platform/net_events.h"

#include <set>

#include "tests/contract/wfp_world.h"

namespace contract {
namespace {

using WfpEvents = WfpWorld;

void Ignore(void*, const NetEvent*) {}

TEST_F(WfpEvents, OptionsAreNotForDynamicSessionsNorTransactions) {
  Session dynamic(kSessionDynamic);
  EXPECT_EQ(SetOption(dynamic, kCollectNetEvents, 1), kDynamicSessionInProgress);
  ASSERT_EQ(BeginTransaction(engine, 0), kSuccess);
  EXPECT_EQ(SetOption(engine, kCollectNetEvents, 1), kTransactionInProgress);
  ASSERT_EQ(AbortTransaction(engine), kSuccess);
  EXPECT_EQ(SetOption(engine, kCollectNetEvents, 1), kSuccess);
  EXPECT_NE(SetOption(engine, kCollectNetEvents, 2), kSuccess) << "neither off nor on";
  EXPECT_EQ(SetOption(engine, kNetEventKeywords, 0), kSuccess);
}

TEST_F(WfpEvents, SubscribingIsNotForTransactions) {
  for (const NetEventRecord record : {NetEventRecord::kNewest, NetEventRecord::kOldest}) {
    Session dynamic(kSessionDynamic);
    SubscriptionHandle subscription = 0;
    const auto subscribe = [&] {
      return SubscribeNetEvents(dynamic, record, Ignore, nullptr, subscription);
    };
    ASSERT_EQ(BeginTransaction(dynamic, kTransactionReadOnly), kSuccess);
    EXPECT_EQ(subscribe(), kTransactionInProgress);
    ASSERT_EQ(AbortTransaction(dynamic), kSuccess);
    ASSERT_EQ(subscribe(), kSuccess);
    EXPECT_EQ(UnsubscribeNetEvents(dynamic, subscription), kSuccess);
    EXPECT_EQ(subscribe(), kSuccess) << "ends with its session";
  }
}

TEST_F(WfpEvents, LayersHaveNumbersOfTheirOwnInEverySession) {
  std::set<std::uint16_t> numbers;
  for (const Guid& layer :
       {kLayerConnectV4, kLayerConnectV6, kLayerRecvAcceptV4, kLayerRecvAcceptV6}) {
    Session other;
    std::uint16_t number = 0;
    std::uint16_t again = 0;
    ASSERT_EQ(LayerId(engine, layer, number), kSuccess);
    ASSERT_EQ(LayerId(other, layer, again), kSuccess);
    EXPECT_EQ(number, again);
    numbers.insert(number);
  }
  EXPECT_EQ(numbers.size(), 4u);
  std::uint16_t none = 77;
  EXPECT_EQ(LayerId(engine, FreshGuid(), none), kLayerNotFound);
  EXPECT_EQ(none, 77);
}

}  // namespace
}  // namespace contract

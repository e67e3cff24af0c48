// The options of the filtering engine's reports, and the numbers that name layers in them.
#include "platform/net_events.h"

#include <set>

#include "tests/contract/wfp_world.h"

namespace contract {
namespace {

using WfpEvents = WfpWorld;

TEST_F(WfpEvents, OptionsAreNotForDynamicSessionsNorTransactions) {
  Session dynamic(kSessionDynamic);
  EXPECT_EQ(SetOption(dynamic, kCollectNetEvents, 1), kDynamicSessionInProgress);
  ASSERT_EQ(BeginTransaction(engine, 0), kSuccess);
  EXPECT_EQ(SetOption(engine, kCollectNetEvents, 1), kTransactionInProgress);
  ASSERT_EQ(AbortTransaction(engine), kSuccess);
  EXPECT_EQ(SetOption(engine, kCollectNetEvents, 1), kSuccess);
  EXPECT_EQ(SetOption(engine, kNetEventKeywords, 0), kSuccess);
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
}

}  // namespace
}  // namespace contract

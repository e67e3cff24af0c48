// The filtering engine: sessions, transactions, enumerations and change notifications.
#include <set>

#include "platform/wait.h"
#include "tests/contract/wfp_world.h"

namespace contract {
namespace {

using WfpTransactions = WfpWorld;
using WfpSessions = WfpWorld;
using WfpEnumeration = WfpWorld;
using WfpChanges = WfpWorld;

TEST_F(WfpTransactions, ChangeIsSeenByOthersAfterTheCommitAlone) {
  Session other(0, 50);
  const Filter filter = SomeFilter();
  ASSERT_EQ(BeginTransaction(engine, 0), kSuccess);
  ASSERT_EQ(Add(engine, filter), kSuccess);
  EXPECT_TRUE(Has(engine, filter.key));
  EXPECT_EQ(BeginTransaction(other, 0), kTransactionTimeout);
  ASSERT_EQ(CommitTransaction(engine), kSuccess);
  EXPECT_TRUE(Has(other, filter.key));
}

TEST_F(WfpTransactions, AbortBringsBackWhatWasDeleted) {
  const Filter old = SomeFilter();
  const Filter fresh = SomeFilter();
  ASSERT_EQ(Add(engine, old), kSuccess);
  ASSERT_EQ(BeginTransaction(engine, 0), kSuccess);
  ASSERT_EQ(DeleteFilter(engine, old.key), kSuccess);
  ASSERT_EQ(Add(engine, fresh), kSuccess);
  EXPECT_FALSE(Has(engine, old.key));
  ASSERT_EQ(AbortTransaction(engine), kSuccess);
  EXPECT_TRUE(Has(engine, old.key));
  EXPECT_FALSE(Has(engine, fresh.key));
}

TEST_F(WfpTransactions, FailedCallDoesNotDoomTheRest) {
  const Filter filter = SomeFilter();
  ASSERT_EQ(BeginTransaction(engine, 0), kSuccess);
  ASSERT_EQ(Add(engine, filter), kSuccess);
  EXPECT_EQ(Add(engine, filter), kObjectExists);
  EXPECT_EQ(DeleteFilter(engine, FreshGuid()), kFilterNotFound);
  EXPECT_EQ(BeginTransaction(engine, 0), kTransactionInProgress);
  ASSERT_EQ(CommitTransaction(engine), kSuccess);
  EXPECT_EQ(CommitTransaction(engine), kNoTransaction);
  EXPECT_EQ(AbortTransaction(engine), kNoTransaction);
  EXPECT_TRUE(Has(engine, filter.key));
}

TEST_F(WfpTransactions, EndWithTheirSession) {
  const Filter filter = SomeFilter();
  Session other;
  ASSERT_EQ(BeginTransaction(other, 0), kSuccess);
  ASSERT_EQ(Add(other, filter), kSuccess);
  other.Close();
  EXPECT_FALSE(Has(engine, filter.key));
  ASSERT_EQ(BeginTransaction(engine, 0), kSuccess);
  EXPECT_EQ(AbortTransaction(engine), kSuccess);
}

TEST_F(WfpSessions, OnlyADynamicOneTakesItsObjectsAlong) {
  const Filter passing = SomeFilter();
  const Filter lasting = SomeFilter();
  Session dynamic(kSessionDynamic);
  Session plain;
  ASSERT_EQ(Add(dynamic, passing), kSuccess);
  ASSERT_EQ(Add(plain, lasting), kSuccess);
  EXPECT_TRUE(Has(engine, passing.key));
  dynamic.Close();
  plain.Close();
  EXPECT_FALSE(Has(engine, passing.key));
  EXPECT_TRUE(Has(engine, lasting.key));
}

TEST_F(WfpEnumeration, ShowsTheMomentOfItsOpeningAndEndsWithABatchThatIsNotFull) {
  std::set<Guid> before;
  for (int i = 0; i < 5; ++i) {
    const Filter filter = SomeFilter();
    ASSERT_EQ(Add(engine, filter), kSuccess);
    before.insert(filter.key);
  }
  EnumHandle enumeration = 0;
  ASSERT_EQ(OpenFilterEnum(engine, enumeration), kSuccess);
  ASSERT_EQ(DeleteFilter(engine, *before.begin()), kSuccess);
  ASSERT_EQ(Add(engine, SomeFilter()), kSuccess);
  std::vector<Filter> batch;
  std::set<Guid> seen;
  do {
    ASSERT_EQ(NextFilters(engine, enumeration, 2, batch), kSuccess);
    ASSERT_LE(batch.size(), 2u);
    for (const Filter& f : batch) {
      if (f.sublayer == sublayer.key) seen.insert(f.key);
    }
  } while (batch.size() == 2);
  EXPECT_EQ(seen, before);
  EXPECT_EQ(NextFilters(engine, enumeration, 2, batch), kSuccess);
  EXPECT_TRUE(batch.empty()) << "past the end";
  EXPECT_EQ(CloseFilterEnum(engine, enumeration), kSuccess);
}

TEST_F(WfpChanges, TellOfOtherSessionsAlone) {
  Event changed(Event::Reset::kAutomatic);
  SubscriptionHandle subscription = 0;
  ASSERT_EQ(SubscribeFilterChanges(
                engine, kNotifyOnAdd | kNotifyOnDelete,
                [](void* context) { static_cast<Event*>(context)->Set(); }, &changed, subscription),
            kSuccess);
  const auto told = [&changed] { return WaitForAny({&changed}, 10'000) == 0; };
  const auto quiet = [&changed] { return WaitForAny({&changed}, 200) == kWaitTimedOut; };
  Session other;
  const Filter filter = SomeFilter();
  ASSERT_EQ(Add(other, filter), kSuccess);
  EXPECT_TRUE(told()) << "an added filter";
  ASSERT_EQ(DeleteFilter(other, filter.key), kSuccess);
  EXPECT_TRUE(told()) << "a deleted filter";
  ASSERT_EQ(Add(engine, filter), kSuccess);
  EXPECT_TRUE(quiet()) << "the session's own filter";

  ASSERT_EQ(BeginTransaction(other, 0), kSuccess);
  ASSERT_EQ(Add(other, SomeFilter()), kSuccess);
  EXPECT_TRUE(quiet()) << "before the commit";
  ASSERT_EQ(CommitTransaction(other), kSuccess);
  EXPECT_TRUE(told()) << "after the commit";

  ASSERT_EQ(UnsubscribeFilterChanges(engine, subscription), kSuccess);
  changed.Clear();
  ASSERT_EQ(Add(other, SomeFilter()), kSuccess);
  EXPECT_TRUE(quiet()) << "after the end";
}

}  // namespace
}  // namespace contract

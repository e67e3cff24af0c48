// The filtering engine: sessions, transactions, enumerations and change notifications.
#include <algorithm>

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
  ASSERT_EQ(CommitTransaction(engine), kSuccess);
  EXPECT_TRUE(Has(engine, filter.key));
}

TEST_F(WfpTransactions, AreNotNestedNorEndedTwice) {
  EXPECT_EQ(CommitTransaction(engine), kNoTransaction);
  EXPECT_EQ(AbortTransaction(engine), kNoTransaction);
  ASSERT_EQ(BeginTransaction(engine, 0), kSuccess);
  EXPECT_EQ(BeginTransaction(engine, 0), kTransactionInProgress);
  EXPECT_EQ(CommitTransaction(engine), kSuccess);
  EXPECT_EQ(CommitTransaction(engine), kNoTransaction);
}

TEST_F(WfpTransactions, ReadOnlyOneTakesNoChange) {
  ASSERT_EQ(BeginTransaction(engine, kTransactionReadOnly), kSuccess);
  EXPECT_EQ(Add(engine, SomeFilter()), kIncompatibleTransaction);
  EXPECT_TRUE(OwnFilters(engine).empty());
  EXPECT_EQ(CommitTransaction(engine), kSuccess);
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

TEST_F(WfpEnumeration, EndsWithABatchThatIsNotFull) {
  for (int i = 0; i < 5; ++i) ASSERT_EQ(Add(engine, SomeFilter()), kSuccess);
  const std::size_t all = AllFilters(engine).size();
  ASSERT_GE(all, 5u);
  EnumHandle enumeration = 0;
  ASSERT_EQ(OpenFilterEnum(engine, enumeration), kSuccess);
  std::vector<Filter> batch;
  std::size_t seen = 0;
  for (;;) {
    ASSERT_EQ(NextFilters(engine, enumeration, 2, batch), kSuccess);
    ASSERT_LE(batch.size(), 2u);
    seen += batch.size();
    if (batch.size() < 2) break;
  }
  EXPECT_EQ(seen, all);
  EXPECT_EQ(NextFilters(engine, enumeration, 2, batch), kSuccess);
  EXPECT_TRUE(batch.empty()) << "past the end";
  EXPECT_EQ(CloseFilterEnum(engine, enumeration), kSuccess);
}

TEST_F(WfpEnumeration, ShowsTheMomentOfItsOpening) {
  const Filter before = SomeFilter();
  const Filter after = SomeFilter();
  ASSERT_EQ(Add(engine, before), kSuccess);
  EnumHandle enumeration = 0;
  ASSERT_EQ(OpenFilterEnum(engine, enumeration), kSuccess);
  ASSERT_EQ(DeleteFilter(engine, before.key), kSuccess);
  ASSERT_EQ(Add(engine, after), kSuccess);
  std::vector<Filter> seen;
  ASSERT_EQ(NextFilters(engine, enumeration, 1000, seen), kSuccess);
  EXPECT_EQ(CloseFilterEnum(engine, enumeration), kSuccess);
  const auto has = [&seen](const Guid& key) {
    return std::any_of(seen.begin(), seen.end(), [&](const Filter& f) { return f.key == key; });
  };
  EXPECT_TRUE(has(before.key));
  EXPECT_FALSE(has(after.key));
}

TEST_F(WfpChanges, TellOfOtherSessionsAlone) {
  Event changed(Event::Reset::kAutomatic);
  SubscriptionHandle subscription = 0;
  ASSERT_EQ(SubscribeFilterChanges(
                engine, kNotifyOnAdd | kNotifyOnDelete,
                [](void* context) { static_cast<Event*>(context)->Set(); }, &changed, subscription),
            kSuccess);
  constexpr std::uint32_t kLong = 10000;
  constexpr std::uint32_t kShort = 200;
  Session other;
  const Filter filter = SomeFilter();
  ASSERT_EQ(Add(other, filter), kSuccess);
  EXPECT_EQ(WaitForAny({&changed}, kLong), 0) << "an added filter";
  ASSERT_EQ(DeleteFilter(other, filter.key), kSuccess);
  EXPECT_EQ(WaitForAny({&changed}, kLong), 0) << "a deleted filter";
  ASSERT_EQ(Add(engine, filter), kSuccess);
  EXPECT_EQ(WaitForAny({&changed}, kShort), kWaitTimedOut) << "the session's own filter";

  ASSERT_EQ(BeginTransaction(other, 0), kSuccess);
  ASSERT_EQ(Add(other, SomeFilter()), kSuccess);
  EXPECT_EQ(WaitForAny({&changed}, kShort), kWaitTimedOut) << "before the commit";
  ASSERT_EQ(CommitTransaction(other), kSuccess);
  EXPECT_EQ(WaitForAny({&changed}, kLong), 0) << "after the commit";

  ASSERT_EQ(UnsubscribeFilterChanges(engine, subscription), kSuccess);
  changed.Clear();
  ASSERT_EQ(Add(other, SomeFilter()), kSuccess);
  EXPECT_EQ(WaitForAny({&changed}, kShort), kWaitTimedOut) << "after the end";
}

}  // namespace
}  // namespace contract

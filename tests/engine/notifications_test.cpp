// What subscribers hear of changes, and when they hear no more.
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "tests/engine/engine_world.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;
using simulation::NetEvent;

class Notifications : public EngineWorld {
 protected:
  // What subscribers hear is appended to `heard`: "+<key>", "-<key>", "!" for a net event.
  SubscriptionId Subscribe(SessionId as, std::uint32_t flags) {
    SubscriptionId subscription = 0;
    const auto note = [this](const FilterChange& change) {
      const std::lock_guard lock(mutex_);
      heard_ += change.added ? '+' : '-';
      heard_ += static_cast<char>('0' + change.key.data4[7]);
    };
    EXPECT_EQ(engine.SubscribeFilterChanges(as, flags, note, subscription), kSuccess);
    return subscription;
  }
  SubscriptionId SubscribeEvents(SessionId as) {
    SubscriptionId subscription = 0;
    const auto note = [this](const NetEvent&) {
      const std::lock_guard lock(mutex_);
      heard_ += '!';
    };
    EXPECT_EQ(engine.SubscribeNetEvents(as, note, subscription), kSuccess);
    return subscription;
  }
  std::string Heard() {
    engine.WaitForNotifications();
    const std::lock_guard lock(mutex_);
    return std::exchange(heard_, {});
  }

  SessionId listener = Open(LocalSystemCaller());

 private:
  std::mutex mutex_;
  std::string heard_;
};

TEST_F(Notifications, TellOfWhatASessionTakesAlongButNotOfWhatWasAborted) {
  Subscribe(listener, kNotifyOnAdd | kNotifyOnDelete);
  ASSERT_EQ(engine.Begin(session, 0), kSuccess);
  ASSERT_EQ(Add(WithKey(2)), kSuccess);
  ASSERT_EQ(engine.Abort(session), kSuccess);
  const SessionId dynamic = Open(LocalSystemCaller(), kSessionDynamic);
  ASSERT_EQ(AddAs(dynamic, WithKey(4)), kSuccess);
  ASSERT_EQ(engine.CloseSession(dynamic), kSuccess);
  EXPECT_EQ(Heard(), "+4-4");
}

TEST_F(Notifications, EndWithSubscriptionSessionAndService) {
  SubscriptionId changes = Subscribe(listener, kNotifyOnAdd);
  SubscriptionId events = SubscribeEvents(listener);
  EXPECT_EQ(engine.UnsubscribeFilterChanges(listener, events), kObjectNotFound) << "not of changes";
  EXPECT_EQ(engine.UnsubscribeNetEvents(session, events), kObjectNotFound) << "another's";
  ASSERT_EQ(Add(WithKey(4)), kSuccess);
  EXPECT_FALSE(Permits());
  EXPECT_EQ(Heard(), "+4!");
  EXPECT_EQ(engine.UnsubscribeFilterChanges(listener, changes), kSuccess);
  EXPECT_EQ(engine.UnsubscribeFilterChanges(listener, changes), kObjectNotFound);
  EXPECT_EQ(engine.UnsubscribeNetEvents(listener, events), kSuccess);
  ASSERT_EQ(Add(WithKey(1)), kSuccess);
  EXPECT_FALSE(Permits());
  Subscribe(listener, kNotifyOnAdd);
  SubscribeEvents(listener);
  ASSERT_EQ(engine.CloseSession(listener), kSuccess);
  ASSERT_EQ(Add(WithKey(2)), kSuccess);
  EXPECT_FALSE(Permits());
  listener = Open(LocalSystemCaller());
  changes = Subscribe(listener, kNotifyOnAdd);
  events = SubscribeEvents(listener);
  engine.Stop();
  engine.Start();
  EXPECT_EQ(engine.UnsubscribeFilterChanges(listener, changes), kSessionAborted);
  EXPECT_EQ(engine.UnsubscribeNetEvents(listener, events), kSessionAborted);
  session = Open(LocalSystemCaller());
  ASSERT_EQ(Add(WithKey(3)), kSuccess);
  EXPECT_FALSE(Permits());
  EXPECT_EQ(Heard(), "");
}

// The subscriber's context may go as soon as the call has returned.
TEST_F(Notifications, UnsubscribingWaitsForARunningCallback) {
  std::atomic<bool> inside = false;
  std::atomic<bool> finished = false;
  SubscriptionId subscription = 0;
  const auto slow = [&](const FilterChange&) {
    inside = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    finished = true;
  };
  ASSERT_EQ(engine.SubscribeFilterChanges(listener, kNotifyOnAdd, slow, subscription), kSuccess);
  ASSERT_EQ(Add(WithKey(1)), kSuccess);
  while (!inside) std::this_thread::yield();
  EXPECT_EQ(engine.UnsubscribeFilterChanges(listener, subscription), kSuccess);
  EXPECT_TRUE(finished);
}

}  // namespace
}  // namespace simulation

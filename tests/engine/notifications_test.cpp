// What subscribers hear of changes, and when they hear no more.
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "tests/engine/engine_world.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

class Notifications : public EngineWorld {
 protected:
  // Subscribes a session of its own; what it hears is appended to `heard` as "+<key>" or "-<key>".
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

TEST_F(Notifications, TellOnlyWhatWasAskedForAndMayBeRead) {
  SubscriptionId none = 0;
  const auto ignore = [](const FilterChange&) {};
  EXPECT_EQ(engine.SubscribeFilterChanges(listener, 0, ignore, none), kInvalidFlags);
  EXPECT_EQ(engine.SubscribeFilterChanges(listener, 4, ignore, none), kInvalidFlags);
  Subscribe(listener, kNotifyOnDelete);
  const SessionId administrator = Open(AdministratorCaller());
  Subscribe(administrator, kNotifyOnAdd);
  const Bytes system_only = DescriptorOf({{true, kAllRights, LocalSystemSid()}});
  ASSERT_EQ(AddAs(session, WithKey(1)), kSuccess);
  ASSERT_EQ(AddAs(session, WithKey(2), system_only), kSuccess);
  ASSERT_EQ(engine.DeleteFilter(session, Key(2)), kSuccess);
  EXPECT_EQ(Heard(), "+1-2");
}

TEST_F(Notifications, EndWithSubscriptionSessionAndService) {
  const SubscriptionId subscription = Subscribe(listener, kNotifyOnAdd);
  EXPECT_EQ(engine.UnsubscribeFilterChanges(listener, subscription), kSuccess);
  EXPECT_EQ(engine.UnsubscribeFilterChanges(listener, subscription), kObjectNotFound);
  ASSERT_EQ(Add(WithKey(1)), kSuccess);
  Subscribe(listener, kNotifyOnAdd);
  ASSERT_EQ(engine.CloseSession(listener), kSuccess);
  ASSERT_EQ(Add(WithKey(2)), kSuccess);
  listener = Open(LocalSystemCaller());
  const SubscriptionId lost = Subscribe(listener, kNotifyOnAdd);
  engine.Stop();
  engine.Start();
  EXPECT_EQ(engine.UnsubscribeFilterChanges(listener, lost), kSessionAborted);
  session = Open(LocalSystemCaller());
  ASSERT_EQ(Add(WithKey(3)), kSuccess);
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

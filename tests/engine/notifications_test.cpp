// When subscribers hear no more of changes.
#include <atomic>
#include <chrono>
#include <thread>

#include "tests/engine/engine_world.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;
using Notifications = EngineWorld;

// The subscriber's context may go as soon as the call has returned.
TEST_F(Notifications, UnsubscribingWaitsForARunningCallback) {
  std::atomic<bool> inside = false;
  std::atomic<bool> finished = false;
  const SessionId listener = Open(LocalSystemCaller());
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

// What one thread may rely on while another is in the engine.
#include <atomic>
#include <chrono>
#include <thread>

#include "tests/engine/engine_world.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

using Threads = EngineWorld;

// Verdicts put from another thread never meet half of a swap.
TEST_F(Threads, SeeASwapWholeOrNotAtAll) {
  const auto swap = [&] {
    ASSERT_EQ(engine.Begin(session, 0), kSuccess);
    Clear();
    for (int i = 0; i < 20; ++i) ASSERT_EQ(Add(SomeFilter()), kSuccess);
    ASSERT_EQ(engine.Commit(session), kSuccess);
  };
  swap();
  std::atomic<bool> done = false;
  std::thread verdicts([&] {
    while (!done) EXPECT_FALSE(Permits());
  });
  for (int round = 0; round < 50; ++round) swap();
  done = true;
  verdicts.join();
}

// The subscriber's context may go as soon as the call has returned.
TEST_F(Threads, UnsubscribeBehindARunningCallback) {
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

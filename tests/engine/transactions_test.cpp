// Transactions: all or nothing, one writer, and nobody sees what isn't committed.
#include <atomic>
#include <chrono>
#include <thread>

#include "tests/engine/engine_world.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

using Transactions = EngineWorld;

TEST_F(Transactions, ClosingASessionAbortsItsTransactionAndWakesTheNext) {
  const SessionId waiting = Open(LocalSystemCaller(), 0, 0xFFFFFFFF);
  ASSERT_EQ(engine.Begin(session, 0), kSuccess);
  ASSERT_EQ(Add(WithKey(1)), kSuccess);
  Code code = kTransactionTimeout;
  std::thread next([&] { code = engine.Begin(waiting, 0); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));  // so that it most likely waits
  EXPECT_EQ(engine.CloseSession(session), kSuccess);
  next.join();
  EXPECT_EQ(code, kSuccess);
  EXPECT_EQ(engine.Commit(waiting), kSuccess);
  EXPECT_FALSE(Has(Key(1)));
}

// Verdicts put from another thread never meet half of a swap.
TEST_F(Transactions, SwapIsSeenWholeOrNotAtAll) {
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

}  // namespace
}  // namespace simulation

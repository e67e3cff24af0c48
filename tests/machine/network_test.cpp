// The machine tells of changed interfaces.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/network.h"
#include "platform/wait.h"
#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

struct Listener {
  Event begun{Event::Reset::kAutomatic};
  std::atomic<int> calls = 0;
};

// Takes its time, so that a cancellation that does not wait is seen.
void Hear(void* context) {
  auto& listener = *static_cast<Listener*>(context);
  listener.begun.Set();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  ++listener.calls;
}

TEST(InterfaceChanges, AreToldUntilACancellationThatWaitsForACallUnderWay) {
  Network& network = TheMachine().network;
  Listener listener;
  InterfaceNotification notification = 0;
  ASSERT_EQ(NotifyInterfaceChanges(Hear, &listener, notification), kSuccess);
  std::thread change([&] { network.ChangeInterfaces(); });
  WaitForAny({&listener.begun}, kWaitForever);
  EXPECT_EQ(CancelInterfaceNotification(notification), kSuccess);
  EXPECT_EQ(listener.calls, 1);
  change.join();
  network.ChangeInterfaces();
  EXPECT_EQ(listener.calls, 1);
  EXPECT_EQ(network.notifications(), 0u);
}

}  // namespace
}  // namespace simulation

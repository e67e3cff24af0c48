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
  Event begun{Event::Reset::kManual};
  std::atomic<int> calls = 0;
  std::thread::id thread;  // of the last call
};

// Takes its time, so that a cancellation that does not wait is seen.
void Hear(void* context) {
  auto& listener = *static_cast<Listener*>(context);
  listener.begun.Set();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  listener.thread = std::this_thread::get_id();
  ++listener.calls;
}

TEST(InterfaceChanges, AreToldOnAnotherThreadUntilACancellationThatWaitsForIt) {
  Network& network = TheMachine().network;
  Listener listener;
  InterfaceNotification notification = 0;
  ASSERT_EQ(NotifyInterfaceChanges(Hear, &listener, notification), kSuccess);
  network.ChangeInterfaces();
  EXPECT_EQ(listener.calls, 1);
  EXPECT_NE(listener.thread, std::this_thread::get_id());

  listener.begun.Clear();
  std::thread change([&] { network.ChangeInterfaces(); });
  WaitForAny({&listener.begun}, kWaitForever);
  EXPECT_EQ(CancelInterfaceNotification(notification), kSuccess);
  EXPECT_EQ(listener.calls, 2);
  change.join();
  network.ChangeInterfaces();
  EXPECT_EQ(listener.calls, 2);
  EXPECT_EQ(network.notifications(), 0u);
}

}  // namespace
}  // namespace simulation

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

void Count(void* context) {
  ++*static_cast<std::atomic<int>*>(context);
}

TEST(InterfaceChanges, CallEachNotificationOnAnotherThreadOnceUntilItIsCancelled) {
  Network& network = TheMachine().network;
  std::atomic<int> calls = 0;
  std::thread::id caller;
  InterfaceNotification counting = 0;
  InterfaceNotification noting = 0;
  ASSERT_EQ(NotifyInterfaceChanges(Count, &calls, counting), kSuccess);
  ASSERT_EQ(NotifyInterfaceChanges(
                [](void* id) { *static_cast<std::thread::id*>(id) = std::this_thread::get_id(); },
                &caller, noting),
            kSuccess);
  network.ChangeInterfaces();
  network.ChangeInterfaces();
  EXPECT_EQ(calls, 2);
  EXPECT_TRUE(caller != std::thread::id() && caller != std::this_thread::get_id());
  EXPECT_EQ(CancelInterfaceNotification(counting), kSuccess);
  EXPECT_EQ(network.notifications(), 1u);
  network.ChangeInterfaces();
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(CancelInterfaceNotification(counting), kInvalidHandle);
  TheMachine().Restart();
  EXPECT_EQ(network.notifications(), 0u);
}

TEST(InterfaceChanges, CancellingWaitsForTheRunningCallback) {
  struct Callback {
    Event begun{Event::Reset::kManual};
    Event may_end{Event::Reset::kManual};
    std::atomic<bool> ended = false;
  } callback;
  InterfaceNotification notification = 0;
  ASSERT_EQ(NotifyInterfaceChanges(
                [](void* context) {
                  auto& own = *static_cast<Callback*>(context);
                  own.begun.Set();
                  WaitForAny({&own.may_end}, kWaitForever);
                  std::this_thread::sleep_for(std::chrono::milliseconds(20));
                  own.ended = true;
                },
                &callback, notification),
            kSuccess);
  std::thread change([] { TheMachine().network.ChangeInterfaces(); });
  WaitForAny({&callback.begun}, kWaitForever);
  callback.may_end.Set();
  EXPECT_EQ(CancelInterfaceNotification(notification), kSuccess);
  EXPECT_TRUE(callback.ended);
  change.join();
}

}  // namespace
}  // namespace simulation

// Waits of a test on a held clock beside threads at work on a signal.
#include "simulation/machine/directory_watches.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

// On a held clock a wait would otherwise be over before another thread has its turn.
TEST(DirectoryWatches, AWaitOnAHeldClockComesAfterTheWorkOnSignals) {
  Machine& machine = TheMachine();
  machine.files.MakeDirectories(L"C:\\App");
  Event stop(Event::Reset::kManual);
  Event done(Event::Reset::kAutomatic);
  std::thread watcher([&] {
    std::vector<DirectoryWatch> watches(1);
    EXPECT_EQ(WatchDirectory(L"C:\\App", kNotifyFileName, watches[0]), kSuccess);
    while (WaitForChange(stop, watches) == 1) {
      EXPECT_EQ(WaitForAny({&done}, 0), kWaitTimedOut);  // a watcher does not wait for itself
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      done.Set();
      EXPECT_EQ(ContinueWatch(watches[0]), kSuccess);
    }
    EXPECT_EQ(WaitForAny({&stop}, 0), 0);
  });
  ASSERT_TRUE(machine.watches.WaitForOpen(1));
  for (const wchar_t* name : {L"C:\\App\\a", L"C:\\App\\b"}) {
    machine.files.Write(name, "");
    EXPECT_EQ(WaitForAny({&done}, 1000), 0);
  }
  stop.Set();
  machine.files.Write(L"C:\\App\\c", "");
  watcher.join();
  EXPECT_EQ(WaitForAny({&done}, 1000), kWaitTimedOut);
}

}  // namespace
}  // namespace simulation

// Named pipes: what a contract can't see of calls that wait.
#include "platform/pipes.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

TEST(PipeCalls, OnOneHandleTakeTurns) {
  constexpr const wchar_t* kName = L"\\\\.\\pipe\\machine test";
  SecurityDescriptor descriptor;
  ASSERT_EQ(DescriptorFromText(L"D:P(A;;GA;;;SY)(A;;GA;;;BA)", descriptor), kSuccess);
  PipeSettings settings;
  settings.name = kName;
  settings.open_mode = kPipeDuplex;
  settings.instances = kUnlimitedPipeInstances;
  Pipe server, client;
  ASSERT_EQ(MakePipe(settings, descriptor, server), kSuccess);
  ASSERT_EQ(OpenPipe(kName, false, client), kSuccess);
  std::thread reader([&] {
    char byte = 0;
    std::uint32_t read = 0;
    EXPECT_EQ(ReadPipe(server, &byte, 1, read), kSuccess);
  });
  while (TheMachine().pipes.waiting() != 1) std::this_thread::yield();
  std::thread closer([&] { server.Close(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(TheMachine().pipes.open_handles(), 2u) << "closed under a call that waits";
  std::uint32_t written = 0;
  EXPECT_EQ(WritePipe(client, "x", 1, written), kSuccess);
  reader.join();
  closer.join();
  EXPECT_EQ(TheMachine().pipes.open_handles(), 1u);
}

}  // namespace
}  // namespace simulation

// Named pipes: what a contract can't see of calls that wait.
#include "platform/pipes.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "simulation/machine/acting_process.h"
#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

constexpr const wchar_t* kName = L"\\\\.\\pipe\\machine test";

Code Make(Pipe& pipe) {
  SecurityDescriptor descriptor;
  EXPECT_EQ(DescriptorFromText(L"D:P(A;;GA;;;SY)(A;;GA;;;BA)", descriptor), kSuccess);
  return MakePipe({.name = kName,
                   .open_mode = kPipeDuplex,
                   .pipe_mode = kPipeMessageType | kPipeMessageRead,
                   .instances = kUnlimitedPipeInstances,
                   .out_buffer_bytes = 4},
                  descriptor, pipe);
}

struct Ends {
  Pipe server, client;

  Ends() {
    EXPECT_EQ(Make(server), kSuccess);
    EXPECT_EQ(OpenPipe(kName, true, client), kSuccess);
  }
};

void WaitForWaiting(std::size_t calls) {
  while (TheMachine().pipes.waiting() != calls) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

Code Write(const Pipe& pipe, const std::string& message) {
  std::uint32_t written = 0;
  return WritePipe(pipe, message.data(), static_cast<std::uint32_t>(message.size()), written);
}

Code ReadByte(const Pipe& pipe) {
  char byte = 0;
  std::uint32_t read = 0;
  return ReadPipe(pipe, &byte, 1, read);
}

TEST(PipeCalls, OnOneHandleTakeTurns) {
  Ends ends;
  std::thread reader([&] { EXPECT_EQ(ReadByte(ends.server), kSuccess); });
  WaitForWaiting(1);
  std::thread closer([&] { ends.server.Close(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(TheMachine().pipes.open_handles(), 2u) << "closed under a call that waits";
  EXPECT_EQ(Write(ends.client, "x"), kSuccess);
  reader.join();
  closer.join();
  EXPECT_EQ(TheMachine().pipes.open_handles(), 1u);
}

std::uint32_t ClientOf(const Pipe& server) {
  std::uint32_t process_id = 0;
  EXPECT_EQ(PipeClientProcess(server, process_id), kSuccess);
  return process_id;
}

TEST(PipeClientProcess, IsWhoOpenedThisConnectionThoughItHasClosedIt) {
  const Ends own;
  Pipe server;
  Pipe client;
  ASSERT_EQ(Make(server), kSuccess);
  {
    const AsProcess other(4812);
    ASSERT_EQ(OpenPipe(kName, true, client), kSuccess);
  }
  client.Close();
  EXPECT_EQ(ClientOf(server), 4812u);
  EXPECT_EQ(ClientOf(own.server), std::uint32_t{ProcessTable::kOwnProcess});
}

}  // namespace
}  // namespace simulation

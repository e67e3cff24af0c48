// Named pipes: what a contract can't see of calls that wait, and what the machine's own life does
// to them.
#include "platform/pipes.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "platform/files.h"
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

TEST(PipeCalls, ACancelledWriteTakesBackWhatWasNotRead) {
  const Ends ends;
  std::thread writer([&] { EXPECT_EQ(Write(ends.server, "too much"), 995u); });
  WaitForWaiting(1);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(ReadByte(ends.client), kMoreData);
  EXPECT_EQ(CancelPipe(ends.server.handle()), kSuccess);
  writer.join();
  EXPECT_EQ(Write(ends.server, "x"), kSuccess);
  EXPECT_EQ(ReadByte(ends.client), kSuccess);
}

TEST(PipeCalls, EndWithThePowerAndWithARestart) {
  for (const bool power_goes : {true, false}) {
    Pipe servers[4];
    Pipe clients[3];
    for (Pipe& server : servers) ASSERT_EQ(Make(server), kSuccess);
    for (Pipe& client : clients) ASSERT_EQ(OpenPipe(kName, true, client), kSuccess);
    ASSERT_EQ(Write(servers[2], "x"), kSuccess);
    const std::function<Code()> calls[] = {
        [&] { return ReadByte(servers[0]); },
        [&] { return Write(servers[1], "too much"); },
        [&] { return FlushPipe(servers[2]); },
        [&] { return AwaitPipeClient(servers[3]); },
    };
    std::vector<std::thread> threads;
    for (const auto& call : calls) {
      threads.emplace_back([&call] { EXPECT_EQ(call(), kPowerLost); });
    }
    WaitForWaiting(std::size(calls));
    if (power_goes) {
      TheMachine().files.CutPowerAt(1, CutMode::kKeepMetadata);
      EXPECT_EQ(MakeDirectory(L"C:\\Data"), kPowerLost);
    } else {
      TheMachine().Restart();
    }
    for (std::thread& thread : threads) thread.join();
    if (power_goes) TheMachine().Restart();
    EXPECT_EQ(TheMachine().pipes.open_handles(), 0u);
    EXPECT_EQ(ReadByte(clients[0]), kInvalidHandle);
    EXPECT_EQ(OpenPipe(kName, true, clients[0]), kFileNotFound);
  }
}

}  // namespace
}  // namespace simulation

// Who is heard on the module pipe, what is answered, and its server's start and stop in the middle
// of everything.
#include "modules/module_pipe.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <string>
#include <vector>

#include "core/core_state.h"
#include "modules/module_client.h"
#include "simulation/machine/acting_process.h"
#include "tests/control/pipe_world.h"

namespace kestrelon::test {
namespace {

constexpr std::uint32_t kAsks = 40;    // the process of a module that may ask for the status
constexpr std::uint32_t kSilent = 44;  // of one that may not
constexpr const char* kHello = R"({"cmd":"hello"})";
constexpr const char* kStatus = R"({"cmd":"status"})";
constexpr const char* kAsksHello =
    R"({"ok":true,"module":"asks","permissions":["notify","status.read"],"kestrelon":"1.2.2"})";
constexpr const char* kSilentHello =
    R"({"ok":true,"module":"silent","permissions":[],"kestrelon":"1.2.2"})";

Json Protected() {
  Json reply;
  reply["protection"] = true;
  return reply;
}

PipeClient ConnectAs(std::uint32_t process_id) {
  const simulation::AsProcess as(process_id);
  return PipeClient(kModulePipeName);
}

void Record(const wchar_t* id, std::uint32_t process_id, std::vector<std::wstring> permissions) {
  GuardLock lock(ModuleGuard);
  ModuleProcess process;
  process.module_id = id;
  process.process_id = process_id;
  process.permissions = std::move(permissions);
  ModuleProcesses.push_back(std::move(process));
}

// Closes the pipe; fails the test when that waits for a client that doesn't leave.
void ExpectPromptClose() {
  const auto start = std::chrono::steady_clock::now();
  CloseModulePipe();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2500));
}

class ModulePipe : public PipeWorld {
 protected:
  ModulePipe() {
    Record(L"asks", kAsks, {L"notify", L"status.read"});
    Record(L"silent", kSilent, {});
    SetModuleStatusProvider(Protected);
  }
  void TearDown() override {
    CloseModulePipe();
    PipeWorld::TearDown();
  }
};

TEST_F(ModulePipe, AnswersWhatAModuleMayAskAndStaysWhenItMayNot) {
  struct Row {
    std::uint32_t process_id;
    std::string request;
    std::string reply;
  };
  const Row rows[] = {
      {kAsks, kHello, kAsksHello},
      {kAsks, kStatus, R"({"protection":true})"},
      {kAsks, std::string(16384 - 15, ' ') + kHello, kAsksHello},
      {kAsks, R"({"cmd":5})", Refusal("not permitted")},
      {kAsks, R"({"cmd":"Hello"})", Refusal("not permitted")},
      {kAsks, R"({"cmd":"a\r\nb\u0085c\u2028d"})", Refusal("not permitted")},
      {kAsks, R"({"cmd":")" + std::string(5000, 'x') + R"("})", Refusal("not permitted")},
      {kAsks, "[]", Refusal("invalid request")},
      {kAsks, "", Refusal("invalid request")},
      {kAsks, kHello, kAsksHello},
      {kSilent, kStatus, Refusal("not permitted")},
      {kSilent, kHello, kSilentHello},
      {kSilent, std::string(16385 - 15, ' ') + kHello, kEnded},
  };
  OpenModulePipe();
  PipeClient asks = ConnectAs(kAsks);
  PipeClient silent = ConnectAs(kSilent);
  for (const Row& row : rows) {
    EXPECT_EQ((row.process_id == kAsks ? asks : silent).Ask(row.request), row.reply) << row.request;
  }
  const std::string commands[] = {"", "Hello", "a??b?c?d", std::string(100, 'x')};
  for (const std::string& command : commands) {
    EXPECT_EQ(
        Logged("  Module asks asked for \"" + command + "\" without permission - refused\r\n"), 1U);
  }
  EXPECT_EQ(Logged("  Module silent asked for \"status\" without permission - refused\r\n"), 1U);
  SetModuleStatusProvider(nullptr);
  EXPECT_EQ(asks.Ask(kStatus), Refusal("unavailable"));
}

TEST_F(ModulePipe, NobodyElseIsAnswered) {
  const std::string refused = " is not a module started by Kestrelon - disconnected\r\n";
  OpenModulePipe();
  PipeClient module = ConnectAs(kAsks);
  EXPECT_EQ(module.Ask(kHello), kAsksHello);
  EXPECT_EQ(ConnectAs(99).Ask(kHello), kEnded);
  EXPECT_EQ(Logged("Module pipe: process 99" + refused), 1U);
  machine.faults.FailOnce("PipeClientProcess", platform::kInvalidHandle);
  EXPECT_EQ(ConnectAs(kAsks).Ask(kHello), kEnded);

  DropModuleProcesses();
  EXPECT_EQ(ConnectAs(kAsks).Ask(kHello), kEnded);
  EXPECT_EQ(Logged("Module pipe: process 40" + refused), 1U);
  EXPECT_EQ(module.Ask(kStatus), R"({"protection":true})") << "it keeps what it came with";
}

TEST_F(ModulePipe, EveryUserMayComeButNoneMayServe) {
  OpenModulePipe();
  ASSERT_TRUE(Eventually([this] { return machine.pipes.waiting() == 1; }));
  machine.token.local_system = false;
  machine.token.elevated = false;
  PipeClient user = ConnectAs(kSilent);
  EXPECT_EQ(user.Ask(kHello), kSilentHello);
  platform::SecurityDescriptor descriptor;
  ASSERT_EQ(platform::DescriptorFromText(L"D:P(A;;GA;;;SY)", descriptor), platform::kSuccess);
  platform::Pipe own;
  EXPECT_EQ(platform::MakePipe({.name = kModulePipeName,
                                .open_mode = platform::kPipeDuplex,
                                .pipe_mode = platform::kPipeMessageType,
                                .instances = 16},
                               descriptor, own),
            platform::kAccessDenied);
  CloseModulePipe();
}

// The seconds are fixed ones: each begins with the first request after the last.
TEST_F(ModulePipe, TheTwentyFirstRequestWithinASecondEndsTheConnection) {
  OpenModulePipe();
  PipeClient module = ConnectAs(kAsks);
  for (const std::uint32_t wait_after : {1u, 500u, 0u}) {
    EXPECT_EQ(module.Ask(kHello), kAsksHello);
    machine.clock.Advance(999);
    for (int i = 1; i < 20; ++i) EXPECT_EQ(module.Ask(kHello), kAsksHello);
    machine.clock.Advance(wait_after);
  }
  EXPECT_EQ(module.Ask(kHello), kEnded);
  EXPECT_EQ(Logged("Module asks: too many requests - disconnected\r\n"), 1U);
}

TEST_F(ModulePipe, SixteenClientsAreServedAndTheNextWhenOneHasLeft) {
  OpenModulePipe();
  std::deque<PipeClient> clients;
  for (int i = 0; i < 16; ++i) {
    clients.push_back(ConnectAs(kAsks));
    EXPECT_EQ(clients.back().Ask(kHello), kAsksHello);
  }
  EXPECT_EQ(TryOpen(kModulePipeName), kPipeBusy);
  clients.pop_front();
  EXPECT_EQ(ConnectAs(kSilent).Ask(kHello), kSilentHello);
  EXPECT_EQ(Logged("CreateNamedPipe failed"), 0U) << "there was nothing to make";
}

TEST_F(ModulePipe, ANameTakenByAnotherIsReportedOnceAndHadInTheEnd) {
  platform::Pipe taken = TakeName(kModulePipeName);
  OpenModulePipe();
  EXPECT_TRUE(Eventually([this] { return machine.clock.Tick() >= simulation::kFirstTick + 3000; }));
  EXPECT_EQ(Logged("Module pipe: CreateNamedPipe failed: "), 1U);
  taken.Close();
  EXPECT_EQ(ConnectAs(kAsks).Ask(kHello), kAsksHello);
}

TEST_F(ModulePipe, WhatFailsToOpenIsClosedAndOpensLater) {
  machine.faults.FailOnce("DescriptorFromText", platform::kInvalidParameter);
  OpenModulePipe();
  EXPECT_EQ(Logged("  Module pipe: security descriptor: "), 1U);
  {
    const NoMoreThreads none;
    OpenModulePipe();
    EXPECT_EQ(Logged("  Module pipe: no thread can be started\r\n"), 1U);
  }
  CloseModulePipe();
  EXPECT_EQ(Logged("Module pipe opened") + Logged("Module pipe closed"), 0U);
  for (std::size_t round = 1; round <= 2; ++round) {
    OpenModulePipe();
    OpenModulePipe();
    EXPECT_EQ(ConnectAs(kAsks).Ask(kHello), kAsksHello);
    ExpectPromptClose();
    CloseModulePipe();
    EXPECT_EQ(TryOpen(kModulePipeName), platform::kFileNotFound);
    EXPECT_EQ(Logged("  Module pipe opened\r\n"), round);
    EXPECT_EQ(Logged("  Module pipe closed\r\n"), round);
  }
}

TEST_F(ModulePipe, ClosingEndsEveryKindOfWait) {
  SetModuleStatusProvider([] { return Json(std::string(100000, 'x')); });
  OpenModulePipe();
  PipeClient in_read = ConnectAs(kAsks);
  EXPECT_EQ(in_read.Ask(kHello), kAsksHello);
  PipeClient in_write = ConnectAs(kAsks);  // of more than the pipe holds, and nobody reads it
  in_write.Send(kStatus);
  PipeClient in_flush = ConnectAs(kAsks);  // of a reply before what ended the connection
  in_flush.Send(kHello);
  in_flush.Send(std::string(16385, ' '));
  ASSERT_TRUE(Eventually([this] { return machine.pipes.waiting() == 4; })) << "with the accepting";
  ExpectPromptClose();
  EXPECT_EQ(in_read.Receive(), kEnded);
}

// A pass of the supervisor closes the pipe under the guard that a module's status waits for.
TEST_F(ModulePipe, ClosingDoesNotWaitForAStatusNorDoesThatComeBack) {
  std::atomic<bool> asked = false;
  SetModuleStatusProvider([&asked] {
    asked = true;
    GuardLock lock(ConfigGuard);
    return Json(std::string(100000, 'x'));  // more than the pipe holds
  });
  OpenModulePipe();
  PipeClient before = ConnectAs(kAsks);
  before.Send(kHello);  // whose reply stays unread
  {
    GuardLock lock(ConfigGuard);
    before.Send(kStatus);
    ASSERT_TRUE(Eventually([&asked] { return asked.load(); }));
    ExpectPromptClose();
    OpenModulePipe();
    EXPECT_EQ(ConnectAs(kSilent).Ask(kHello), kSilentHello) << "beside the one that hangs";
  }
  EXPECT_TRUE(Eventually([this] { return machine.pipes.open_handles() == 2; }))
      << "the end of the one that hung, and the instance for the next";
  EXPECT_EQ(before.Receive(), kEnded);
}

}  // namespace
}  // namespace kestrelon::test

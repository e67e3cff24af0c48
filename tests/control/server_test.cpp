// The start of the pipe, its failures, and its stop in the middle of everything.
#include <chrono>

#include "base/text.h"
#include "control/frames.h"
#include "control/pipe_server.h"
#include "control/subscribers.h"
#include "core/error_text.h"
#include "tests/control/pipe_world.h"

namespace kestrelon::test {
namespace {

constexpr platform::Code kFault = 5;
constexpr platform::Code kNothingToCancel = 1168;

void ExpectServed() {
  EXPECT_EQ(PipeClient().Ask("{}"), Refusal("unknown command: "));
}

// Stops the pipe; fails the test when a client had to be given up, which takes three seconds.
void ExpectPromptStop() {
  const auto start = std::chrono::steady_clock::now();
  StopControlPipe();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2500));
  EXPECT_EQ(ServedClients(), 0U);
  EXPECT_EQ(TryOpen(kControlPipeName), platform::kFileNotFound);
}

class PipeServer : public PipeWorld {
 protected:
  // That the service makes no instance beside another process's, and has the name after it.
  void ExpectNotShared(platform::Pipe taken) {
    const std::string refused =
        "CreateNamedPipe failed: " + Utf8FromWide(ErrorText(platform::kAccessDenied));
    EXPECT_TRUE(Eventually([&] { return Logged(refused) >= 2; }));
    EXPECT_EQ(machine.pipes.open_handles(), 1U);
    taken.Close();
    ExpectServed();
  }
};

TEST_F(PipeServer, AFailureToAwaitAClientOrOfAnInstanceIsTriedAgain) {
  machine.faults.FailOnce("AwaitPipeClient", kFault);
  machine.faults.FailOnce("MakePipe", kFault);
  StartControlPipe();
  ExpectServed();
  EXPECT_EQ(Logged("CreateNamedPipe failed: " + Utf8FromWide(ErrorText(kFault))), 1U);
  EXPECT_EQ(machine.clock.Tick(), simulation::kFirstTick + 1000) << "a second later";
}

TEST_F(PipeServer, DoesNotShareANameThatAnotherProcessHasTaken) {
  platform::Pipe taken = TakeName(kControlPipeName);
  StartControlPipe();
  ExpectNotShared(std::move(taken));
}

TEST_F(PipeServer, LosesItsNameRatherThanShareItOnceNoInstanceIsLeft) {
  StartControlPipe();
  ASSERT_TRUE(Eventually([this] { return machine.pipes.waiting() == 1; }));
  machine.faults.FailAlways("MakePipe", kPipeBusy);
  ExpectServed();
  ASSERT_TRUE(Eventually([this] { return machine.pipes.open_handles() == 0; }));
  platform::Pipe taken = TakeName(kControlPipeName);
  machine.faults.Clear();
  ExpectNotShared(std::move(taken));
}

TEST_F(PipeServer, WithoutADescriptorOrAThreadThereIsNoPipe) {
  machine.faults.FailOnce("DescriptorFromText", kFault);
  StartControlPipe();
  EXPECT_EQ(Logged("Pipe server failed: security descriptor: " + Utf8FromWide(ErrorText(kFault))),
            1U);
  ExpectPromptStop();
  const NoMoreThreads none;
  StartControlPipe();
  EXPECT_EQ(Logged("Pipe server failed: no thread can be started"), 1U);
  ExpectPromptStop();
}

TEST_F(PipeServer, AThreadThatCannotStartCostsNoMoreThanItsClient) {
  StartControlPipe();
  {
    PipeClient before;
    EXPECT_EQ(before.Ask("{}"), Refusal("unknown command: "));
    NoMoreThreads none;
    PipeClient refused;
    EXPECT_EQ(refused.Receive(), kEnded);
    EXPECT_EQ(before.Ask("{}"), Refusal("unknown command: "));
  }
  ExpectServed();
  EXPECT_TRUE(Eventually([this] { return machine.pipes.open_handles() == 1; }));
}

TEST_F(PipeServer, StopEndsEveryKindOfWait) {
  StartControlPipe();
  PipeClient in_read;
  EXPECT_EQ(in_read.Ask("{}"), Refusal("unknown command: "));

  PipeClient in_write;  // a reply larger than the pipe's buffer, and nobody reads it
  in_write.Send(R"({"cmd":")" + std::string(100000, 'x') + R"("})");

  PipeClient in_flush;  // one reply unread, and the connection ended by a request too long
  in_flush.Send("{}");
  in_flush.Send(std::string(kLargestFrameBytes + 1, ' '));

  PipeClient stalled;
  stalled.Subscribe();
  for (int i = 0; i < 200; ++i) PublishEvent(std::string(1000, 'x'));
  ASSERT_TRUE(Eventually([this] { return machine.pipes.waiting() == 5; })) << "with the accepting";
  PipeClient idle;
  idle.Subscribe();

  ExpectPromptStop();
  EXPECT_EQ(in_read.Receive(), kEnded);
  EXPECT_EQ(idle.Receive(), kEnded);
}

// A thread that has looked for the stop just before it came enters its wait after the first try to
// wake it: that try finds nothing to open or to cancel.
TEST_F(PipeServer, StopTriesAgainToWakeWhatDidNotWaitYet) {
  StartControlPipe();
  PipeClient client;
  EXPECT_EQ(client.Ask("{}"), Refusal("unknown command: "));
  ASSERT_TRUE(Eventually([this] { return machine.pipes.waiting() == 2; }));
  machine.faults.FailOnce("OpenPipe", kPipeBusy);
  machine.faults.FailOnce("CancelPipe", kNothingToCancel);
  ExpectPromptStop();
}

TEST_F(PipeServer, StopMeetsARetryOfTheFirstInstance) {
  machine.faults.FailAlways("MakePipe", kFault);
  StartControlPipe();
  EXPECT_TRUE(Eventually([this] { return Logged("CreateNamedPipe failed: ") >= 1; }));
  ExpectPromptStop();
}

}  // namespace
}  // namespace kestrelon::test

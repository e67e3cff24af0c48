// Who may come to the pipe, and what is answered to frames of every kind and length.
#include "control/frames.h"
#include "control/pipe_server.h"
#include "tests/control/pipe_world.h"

namespace kestrelon::test {
namespace {

class PipeRequests : public PipeWorld {
 protected:
  PipeRequests() { StartControlPipe(); }
};

TEST_F(PipeRequests, OnlySystemAndAdministratorsConnect) {
  struct Row {
    bool system;
    bool administrator;
    platform::Code opened;
  };
  const Row rows[] = {{false, false, platform::kAccessDenied},
                      {false, true, platform::kSuccess},
                      {true, false, platform::kSuccess}};
  for (const Row& row : rows) {
    PipeClient first;  // the instance is there
    EXPECT_NE(first.Ask("{}"), kEnded);
    machine.token.local_system = row.system;
    machine.token.elevated = row.administrator;
    platform::Code code = platform::kSuccess;
    EXPECT_TRUE(Eventually([&] {
      code = TryOpen(kControlPipeName);
      return code != kPipeBusy;
    }));
    EXPECT_EQ(code, row.opened);
    machine.token.elevated = true;
  }
}

TEST_F(PipeRequests, RequestsAroundTheChunkAndTheBufferArriveWhole) {
  PipeClient client;
  for (const std::size_t size : {16383U, 16384U, 16385U, 32768U, 0x10000U, 0x10001U, 0x100000U}) {
    const std::string frame = R"({"cmd":""})";
    const std::string name(size - frame.size(), 'x');
    EXPECT_EQ(client.Ask(R"({"cmd":")" + name + R"("})"), Refusal("unknown command: " + name));
  }
}

TEST_F(PipeRequests, OneByteOverTheLongestRequestEndsTheConnection) {
  std::string request(kLargestFrameBytes, ' ');
  PipeClient client;
  EXPECT_EQ(client.Ask(request), Refusal("invalid request: unexpected end of input"));
  request += ' ';
  EXPECT_EQ(client.Ask(request), kEnded);
  EXPECT_TRUE(Eventually([] { return ServedClients() == 0; }));
  EXPECT_EQ(PipeClient().Ask("{}"), Refusal("unknown command: ")) << "others are served";
}

}  // namespace
}  // namespace kestrelon::test

#include "tests/scenario/client.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "control/pipe_server.h"
#include "control/subscribers.h"

namespace kestrelon::test {
namespace {

constexpr std::uint32_t kPieceBytes = 4096;
constexpr int kTriesToConnect = 5000;  // one in a millisecond
constexpr const char* kPing = R"({"type":"ping"})";

Json Parsed(const std::string& text) {
  Json value;
  EXPECT_TRUE(Json::Parse(text, value)) << text;
  return value;
}

}  // namespace

Client::Client() {
  // The accepting thread of the service makes one instance after the other, the first one a moment
  // after the start.
  platform::Code code = platform::kSuccess;
  for (int i = 0; i < kTriesToConnect; ++i) {
    code = platform::OpenPipe(kControlPipeName, true, pipe_);
    if (code == platform::kSuccess) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(code, platform::kSuccess);
}

Json Client::Ask(const Json& request) {
  std::string reply;
  const bool answered = Send(request.Dump(false)) && Receive(reply);
  EXPECT_TRUE(answered) << request.Dump(false);
  return answered ? Parsed(reply) : Json();
}

Json Client::Command(const std::string& name) {
  Json request;
  request["cmd"] = Json(name);
  return Ask(request);
}

void Client::Subscribe() {
  EXPECT_TRUE(Send(R"({"cmd":"subscribe"})"));
  // There is no reply to a subscription. Pings mean nothing to anybody; the first that arrives
  // shows that this client gets events.
  std::atomic<bool> arrived = false;
  std::thread pinging([&arrived] {
    while (!arrived) {
      PublishEvent(kPing);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  std::string text;
  EXPECT_TRUE(Receive(text));
  arrived = true;
  pinging.join();
}

Json Client::NextEvent() {
  std::string text;
  do {
    if (!Receive(text)) {
      ADD_FAILURE() << "the connection ended";
      return {};
    }
  } while (text == kPing);
  return Parsed(text);
}

bool Client::Send(const std::string& text) {
  std::uint32_t written = 0;
  const auto size = static_cast<std::uint32_t>(text.size());
  return platform::WritePipe(pipe_, text.data(), size, written) == platform::kSuccess &&
         written == size;
}

bool Client::Receive(std::string& text) {
  text.clear();
  std::vector<char> piece(kPieceBytes);
  platform::Code code = platform::kMoreData;
  while (code == platform::kMoreData) {
    std::uint32_t read = 0;
    code = platform::ReadPipe(pipe_, piece.data(), kPieceBytes, read);
    text.append(piece.data(), read);
  }
  return code == platform::kSuccess;
}

}  // namespace kestrelon::test

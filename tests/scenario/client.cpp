#include "tests/scenario/client.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "control/frames.h"
#include "control/pipe_server.h"
#include "control/subscribers.h"

namespace kestrelon::test {
namespace {

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
  const bool answered = WriteFrame(pipe_, request.Dump(false)) && ReadFrame(pipe_, reply);
  EXPECT_TRUE(answered) << request.Dump(false);
  return answered ? Parsed(reply) : Json();
}

Json Client::Command(const std::string& name) {
  Json request;
  request["cmd"] = Json(name);
  return Ask(request);
}

void Client::Subscribe() {
  EXPECT_TRUE(WriteFrame(pipe_, R"({"cmd":"subscribe"})"));
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
  EXPECT_TRUE(ReadFrame(pipe_, text));
  arrived = true;
  pinging.join();
}

Json Client::NextEvent() {
  std::string text;
  do {
    if (!ReadFrame(pipe_, text)) {
      ADD_FAILURE() << "the connection ended";
      return {};
    }
  } while (text == kPing);
  return Parsed(text);
}

}  // namespace kestrelon::test

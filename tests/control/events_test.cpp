// Events on their way from a publisher to the clients that asked for them.
#include <chrono>
#include <thread>

#include "control/pipe_server.h"
#include "control/subscribers.h"
#include "tests/control/pipe_world.h"

namespace kestrelon::test {
namespace {

class PipeEvents : public PipeWorld {
 protected:
  PipeEvents() { StartControlPipe(); }
};

// The n-th of a run of events, long enough that some dozens fill a pipe's buffer.
std::string Event(std::size_t n) {
  return R"({"type":"blocked","n":)" + std::to_string(n) + R"(,"pad":")" + std::string(1000, 'x') +
         R"("})";
}

TEST_F(PipeEvents, GoToSubscribersAsTheyArePublished) {
  PublishEvent("before anybody asked");
  PipeClient subscriber;
  subscriber.Subscribe();
  PublishConfigEvent("config_changed");
  PublishEvent(Event(1));
  EXPECT_EQ(subscriber.Receive(), R"({"type":"config_changed"})");
  EXPECT_EQ(subscriber.Receive(), Event(1));

  EXPECT_TRUE(subscriber.Send(R"({"cmd":"status"})"));
  PublishEvent(Event(2));
  EXPECT_EQ(subscriber.Receive(), Event(2)) << "a subscription answers no commands";
}

TEST_F(PipeEvents, AStalledSubscriberLosesItsOldestAndTheOtherNone) {
  PipeClient stalled;
  stalled.Subscribe();
  PipeClient other;
  other.Subscribe();
  std::size_t published = 0;
  const auto publish_up_to = [&](std::size_t end) {
    for (; published < end; ++published) {
      PublishEvent(Event(published));
      ASSERT_EQ(other.Receive(), Event(published));
    }
  };
  publish_up_to(100);
  // The accept loop waits for a client, and the stalled one's thread for room in its pipe.
  ASSERT_TRUE(Eventually([this] { return machine.pipes.waiting() == 2; }));
  publish_up_to(3000);

  std::size_t sent = 0;
  std::string text = stalled.Receive();
  for (; text == Event(sent); ++sent) text = stalled.Receive();
  EXPECT_GT(sent, 0U);
  EXPECT_LT(sent, 100U) << "only what its pipe had room for was sent";
  for (std::size_t n = 2000; n < 3000; ++n) {
    ASSERT_EQ(text, Event(n)) << "the last thousand are kept";
    if (n + 1 < 3000) text = stalled.Receive();
  }
  PublishEvent("next");
  EXPECT_EQ(stalled.Receive(), "next");
}

TEST_F(PipeEvents, FifteenSecondsWithoutOneBringAPing) {
  using std::chrono::steady_clock;
  PipeClient subscriber;
  subscriber.Subscribe();
  std::this_thread::sleep_for(std::chrono::seconds(2));
  PublishEvent(Event(0));
  const steady_clock::time_point last = steady_clock::now();
  EXPECT_EQ(subscriber.Receive(), Event(0));
  EXPECT_EQ(subscriber.Receive(), R"({"type":"ping"})");
  const auto silence = steady_clock::now() - last;
  EXPECT_GE(silence, std::chrono::milliseconds(14900));
  EXPECT_LT(silence, std::chrono::seconds(20));
}

TEST_F(PipeEvents, AVanishedSubscriberIsFoundByTheNextEvent) {
  PipeClient subscriber;
  subscriber.Subscribe();
  subscriber.Leave();
  PublishEvent(Event(0));
  EXPECT_TRUE(Eventually([] { return SubscriberCount() == 0 && ServedClients() == 0; }));
}

}  // namespace
}  // namespace kestrelon::test

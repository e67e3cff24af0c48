// Events on their way from a publisher to the clients that asked for them.
#include <numeric>
#include <vector>

#include "config/json.h"
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

// Publishes events, of which the client receives every one in its turn.
void PublishAndReceive(std::size_t begin, std::size_t end, PipeClient& client) {
  for (std::size_t n = begin; n < end; ++n) {
    PublishEvent(Event(n));
    ASSERT_EQ(client.Receive(), Event(n));
  }
}

// Receives events up to the given one; gives the numbers of all.
std::vector<std::size_t> NumbersUpTo(PipeClient& client, std::size_t last) {
  std::vector<std::size_t> numbers;
  while (numbers.empty() || numbers.back() != last) {
    const std::string text = client.Receive();
    Json event;
    if (!Json::Parse(text, event)) return numbers;
    numbers.push_back(static_cast<std::size_t>(event.Get("n").integer()));
    EXPECT_EQ(text, Event(numbers.back()));
  }
  return numbers;
}

TEST_F(PipeEvents, GoToSubscribersAsTheyArePublished) {
  PublishEvent("before anybody asked");
  PipeClient subscriber;
  subscriber.Subscribe();
  PublishConfigEvent("config_changed");
  PublishEvent(Event(1));
  EXPECT_EQ(subscriber.Receive(), R"({"type":"config_changed"})");
  EXPECT_EQ(subscriber.Receive(), Event(1));

  subscriber.Send(R"({"cmd":"status"})");
  PublishEvent(Event(2));
  EXPECT_EQ(subscriber.Receive(), Event(2)) << "a subscription answers no commands";
}

TEST_F(PipeEvents, AStalledSubscriberLosesItsOldestAndTheOtherNone) {
  PipeClient stalled;
  stalled.Subscribe();
  PipeClient other;
  other.Subscribe();
  PublishAndReceive(0, 100, other);
  // The accept loop waits for a client, and the stalled one's thread for room in its pipe.
  ASSERT_TRUE(Eventually([this] { return machine.pipes.waiting() == 2; }));
  PublishAndReceive(100, 3000, other);

  const std::vector<std::size_t> received = NumbersUpTo(stalled, 2999);
  ASSERT_GT(received.size(), 1000U);
  const std::size_t sent = received.size() - 1000;
  EXPECT_LT(sent, 100U) << "only what its pipe had room for was sent";
  std::vector<std::size_t> expected(received.size());
  const auto kept = expected.begin() + static_cast<std::ptrdiff_t>(sent);
  std::iota(expected.begin(), kept, 0);
  std::iota(kept, expected.end(), 2000);
  EXPECT_EQ(received, expected) << "the last thousand are kept";
  PublishEvent("next");
  EXPECT_EQ(stalled.Receive(), "next");
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

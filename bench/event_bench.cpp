// What it costs to publish events to a hundred subscribers, each on a thread of its own, one of
// which never takes any.
//
// The bound does no more than the least: one copy of the text into each of a hundred queues of the
// same length, without guard, wake-up or reader. The publisher waits for the readers before any of
// them could have a thousand texts outstanding: none may then be lost.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include "bench/measure.h"
#include "control/event_stream.h"
#include "control/subscribers.h"

namespace kestrelon {
namespace {

constexpr std::size_t kEvents = 100'000;
constexpr std::size_t kReaders = 99;
constexpr std::size_t kBound = 1000;
constexpr std::size_t kBatch = 500;  // between two waits for the readers

// As long as the event of a blocked connection.
std::string EventNumber(std::size_t n) {
  return R"({"type":"blocked","event":{"number":)" + std::to_string(n) +
         R"(,"app":"C:\\Program Files\\Vendor\\Product\\application.exe","remote":"203.0.113.5",)"
         R"("remote_port":443,"local_port":49152,"protocol":6,"direction":"out","filter":)"
         R"("Kestrelon default block outbound v4","user":"S-1-5-21-1-2-3-1001"}})";
}

// Readers of everything that is published, in order.
class Readers {
 public:
  explicit Readers(const std::vector<std::string>& texts) : texts_(texts) {
    for (std::size_t i = 0; i < kReaders; ++i) threads_.emplace_back([this] { Read(); });
    while (subscribed_ != kReaders) std::this_thread::yield();
  }

  // Waits until all have taken the first `count` texts, or found one missing.
  void Await(std::size_t count) {
    while (taken_ < count * kReaders) std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  std::size_t End() {
    for (std::thread& thread : threads_) thread.join();
    return lost_;
  }

 private:
  void Read() {
    const std::atomic<bool> never = false;
    Subscription subscription;
    ++subscribed_;
    for (std::size_t n = 0; n < texts_.size(); ++n) {
      if (*subscription.Next(never) != texts_[n]) ++lost_;
      if ((n + 1) % kBatch == 0) taken_ += kBatch;
    }
  }

  const std::vector<std::string>& texts_;
  std::vector<std::thread> threads_;
  std::atomic<std::size_t> subscribed_ = 0;
  std::atomic<std::size_t> taken_ = 0;  // by all together
  std::atomic<std::size_t> lost_ = 0;
};

struct Times {
  double publishing = 0;  // in PublishEvent
  double whole = 0;       // of publisher and readers
};

Times Publish(const std::vector<std::string>& texts, Readers& readers) {
  Times times;
  const double start = ProcessNanoseconds();
  for (std::size_t begin = 0; begin < texts.size(); begin += kBatch) {
    const double batch = ThreadNanoseconds();
    for (std::size_t n = begin; n < begin + kBatch; ++n) PublishEvent(texts[n]);
    times.publishing += ThreadNanoseconds() - batch;
    readers.Await(begin + kBatch);
  }
  times.whole = ProcessNanoseconds() - start;
  return times;
}

double BareCopies(const std::vector<std::string>& texts) {
  std::vector<std::deque<std::string>> queues(kReaders + 1);
  const double start = ThreadNanoseconds();
  for (const std::string& text : texts) {
    for (std::deque<std::string>& queue : queues) {
      if (queue.size() >= kBound) queue.pop_front();
      queue.push_back(text);
    }
  }
  return ThreadNanoseconds() - start;
}

void Run() {
  std::vector<std::string> texts;
  for (std::size_t n = 0; n < kEvents; ++n) texts.push_back(EventNumber(n));
  const double copies = BareCopies(texts) / kEvents;

  const Subscription stalled;
  Readers readers(texts);
  const Times times = Publish(texts, readers);
  const std::size_t lost = readers.End();

  char paragraph[200];
  std::snprintf(paragraph, sizeof paragraph,
                "%zu events of %zu bytes to %zu subscribers on threads of their own, one of which "
                "takes none. Each:",
                kEvents, texts.back().size(), kReaders + 1);
  PrintSection("Events to subscribers", paragraph);
  constexpr const char* kCopying = "bare copies into as many queues";
  Print({"publishing", times.publishing / kEvents, kCopying, copies});
  Print({"publishing and reading by all", times.whole / kEvents, kCopying, copies});
  PrintFact("lost by those that read", std::to_string(lost), "0", lost == 0);
  GuardLock lock(TheControlPipe.SubscriberGuard);
  const std::size_t kept = TheControlPipe.events.size();
  PrintFact("kept for the one that takes none", std::to_string(kept) + " texts",
            "at most " + std::to_string(kBound), kept <= kBound);
}

}  // namespace
}  // namespace kestrelon

int main() {
  kestrelon::Run();
}

// What it costs to publish events to a hundred subscribers, each on a thread of its own, one of
// which never takes any.
//
// The peer of the same run does no more than the least: one copy of the text into each of a hundred
// queues of the same bound, without guard, wake-up or reader. The publisher waits for the readers
// before any of them could have a thousand texts outstanding: none may then be lost. All times are
// the processor's: what else the machine does is not this code's.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <string>
#include <thread>
#include <vector>

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

// Processor time so far of the calling thread, or of the process with all of its threads.
double Seconds(clockid_t clock) {
  timespec now{};
  if (clock_gettime(clock, &now) != 0) std::abort();
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
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
  const double start = Seconds(CLOCK_PROCESS_CPUTIME_ID);
  for (std::size_t begin = 0; begin < texts.size(); begin += kBatch) {
    const double batch = Seconds(CLOCK_THREAD_CPUTIME_ID);
    for (std::size_t n = begin; n < begin + kBatch; ++n) PublishEvent(texts[n]);
    times.publishing += Seconds(CLOCK_THREAD_CPUTIME_ID) - batch;
    readers.Await(begin + kBatch);
  }
  times.whole = Seconds(CLOCK_PROCESS_CPUTIME_ID) - start;
  return times;
}

double BareCopies(const std::vector<std::string>& texts) {
  std::vector<std::deque<std::string>> queues(kReaders + 1);
  const double start = Seconds(CLOCK_THREAD_CPUTIME_ID);
  for (const std::string& text : texts) {
    for (std::deque<std::string>& queue : queues) {
      if (queue.size() >= kBound) queue.pop_front();
      queue.push_back(text);
    }
  }
  return Seconds(CLOCK_THREAD_CPUTIME_ID) - start;
}

int Run() {
  std::vector<std::string> texts;
  for (std::size_t n = 0; n < kEvents; ++n) texts.push_back(EventNumber(n));
  const double copies = BareCopies(texts);

  Subscriber stalled;
  {
    GuardLock lock(TheControlPipe.SubscriberGuard);
    TheControlPipe.subscribers.insert(&stalled);
  }
  Readers readers(texts);
  const Times times = Publish(texts, readers);
  const std::size_t lost = readers.End();

  std::size_t kept_bytes = 0;
  for (const EventText& text : stalled.queue) kept_bytes += text->size();
  std::printf("%zu events of %zu bytes to %zu subscribers, one stalled\n", kEvents,
              texts.back().size(), kReaders + 1);
  std::printf("publishing, speed over bare copies into as many queues  %6.2f x  (%.0f events/s)\n",
              copies / times.publishing, static_cast<double>(kEvents) / times.publishing);
  std::printf("publishing and reading, over the same copies            %6.2f x  (%.0f events/s)\n",
              copies / times.whole, static_cast<double>(kEvents) / times.whole);
  std::printf("lost by those that read: %zu%s\n", lost, lost == 0 ? "" : "  MISSED");
  std::printf("kept for the stalled one: %zu texts, %.2f MB%s\n", stalled.queue.size(),
              static_cast<double>(kept_bytes) / 1e6,
              stalled.queue.size() == kBound ? "" : "  MISSED");
  return 0;
}

}  // namespace
}  // namespace kestrelon

int main() {
  return kestrelon::Run();
}

#include "tests/scenario/threads.h"

#include <execinfo.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>

namespace kestrelon::test {
namespace {

constexpr const char* kTasks = "/proc/self/task";

void ShowStack(int) {
  void* frames[64];
  backtrace_symbols_fd(frames, backtrace(frames, 64), STDERR_FILENO);
}

}  // namespace

std::size_t Threads() {
  const std::filesystem::directory_iterator tasks(kTasks);
  return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

void EndWithin(std::chrono::seconds limit) {
  std::thread([limit] {
    std::this_thread::sleep_for(limit);
    void* frame = nullptr;
    (void)backtrace(&frame, 1);  // loads what a handler must not load
    signal(SIGUSR1, ShowStack);
    for (const auto& task : std::filesystem::directory_iterator(kTasks)) {
      const std::string id = task.path().filename();
      std::fprintf(stderr, "Nothing goes on any more; thread %s:\n", id.c_str());
      tgkill(getpid(), std::stoi(id), SIGUSR1);
      usleep(300'000);  // else the stacks would mingle
    }
    std::abort();
  }).detach();
}

}  // namespace kestrelon::test

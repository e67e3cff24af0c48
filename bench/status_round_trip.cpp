// The time of a "status" request on the control pipe beside an echo on a bare pipe of its kind.
//
//   status_round_trip.exe           measures both in turns, with the service and the echo running
//   status_round_trip.exe --echo    answers each message with itself, until it is ended
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "control/pipe_server.h"
#include "platform/console.h"
#include "platform/pipes.h"

namespace kestrelon {
namespace {

constexpr wchar_t kEchoPipeName[] = L"\\\\.\\pipe\\KestrelonEcho";
constexpr std::uint32_t kBufferBytes = 0x10000;
constexpr std::uint32_t kReadBytes = 0x4000;  // as the service reads
constexpr int kRounds = 300;                  // short ones, so that some pass undisturbed
constexpr int kTripsOfRound = 10;
constexpr double kMostTimesEcho = 2;

int Echo() {
  platform::Pipe pipe;
  const platform::PipeSettings settings{
      .name = kEchoPipeName,
      .open_mode = platform::kPipeDuplex | platform::kPipeFirstInstance,
      .pipe_mode = platform::kPipeMessageType | platform::kPipeMessageRead,
      .out_buffer_bytes = kBufferBytes,
      .in_buffer_bytes = kBufferBytes};
  platform::SecurityDescriptor descriptor;
  if (platform::DescriptorFromText(L"D:P(A;;GA;;;SY)(A;;GA;;;BA)", descriptor) ||
      platform::MakePipe(settings, descriptor, pipe)) {
    return 1;
  }
  const platform::Code code = platform::AwaitPipeClient(pipe);
  if (code != platform::kSuccess && code != platform::kPipeConnected) return 1;
  std::vector<char> message(kReadBytes);
  std::uint32_t size = 0;
  std::uint32_t written = 0;
  while (platform::ReadPipe(pipe, message.data(), kReadBytes, size) == platform::kSuccess &&
         platform::WritePipe(pipe, message.data(), size, written) == platform::kSuccess) {
  }
  return 0;
}

// A connection over which one request is sent again and again.
struct Contender {
  explicit Contender(const wchar_t* name)
      : connected(platform::OpenPipe(name, true, pipe) == platform::kSuccess) {}

  // One request and its answer; false when the pipe failed.
  bool Trip() {
    static const std::string request = R"({"cmd":"status"})";
    std::uint32_t written = 0;
    return platform::WritePipe(pipe, request.data(), static_cast<std::uint32_t>(request.size()),
                               written) == platform::kSuccess &&
           platform::ReadPipe(pipe, answer.data(), kReadBytes, answer_size) == platform::kSuccess;
  }

  bool Round() {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kTripsOfRound; ++i) {
      if (!Trip()) return false;
    }
    const std::chrono::duration<double, std::micro> taken =
        std::chrono::steady_clock::now() - start;
    best = std::min(best, taken.count() / kTripsOfRound);
    return true;
  }

  platform::Pipe pipe;
  std::vector<char> answer = std::vector<char>(kReadBytes);
  std::uint32_t answer_size = 0;
  bool connected = false;
  double best = std::numeric_limits<double>::infinity();  // of the rounds, microseconds for a trip
};

int Measure() {
  Contender status(kControlPipeName);
  Contender echo(kEchoPipeName);
  if (!status.connected || !echo.connected || !status.Trip() || !echo.Trip()) {
    std::fputs("The service or the echo does not answer.\n", stderr);
    return 1;
  }
  if (std::string(status.answer.data(), status.answer_size).rfind(R"({"ok":true)", 0) != 0) {
    std::fputs("The service does not give its status.\n", stderr);
    return 1;
  }
  for (int round = 0; round < kRounds; ++round) {
    if (!status.Round() || !echo.Round()) return 1;
  }
  const double ratio = status.best / echo.best;
  std::printf(
      "| a \"status\" request and its answer | %.1f µs | a bare echo: %.1f µs | %.2f | "
      "at most %.2f of it%s |\n",
      status.best, echo.best, ratio, kMostTimesEcho, ratio > kMostTimesEcho ? " **missed**" : "");
  return 0;
}

}  // namespace
}  // namespace kestrelon

int main() {
  const std::vector<std::wstring> arguments = kestrelon::platform::CommandLineArguments();
  const bool echo = !arguments.empty() && arguments.front() == L"--echo";
  return echo ? kestrelon::Echo() : kestrelon::Measure();
}

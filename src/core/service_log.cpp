#include "core/service_log.h"

#include <atomic>
#include <utility>

#include "base/text.h"
#include "core/data_dir.h"
#include "core/line_file.h"
#include "platform/clock.h"
#include "platform/console.h"

namespace kestrelon {
namespace {

// A buffer of 4096 characters with its closing null.
constexpr std::size_t kLongestMessage = 4095;
constexpr std::uint64_t kRotateAboveBytes = 0x200000;

// Atomic because threads of the platform may log while the entry sets it.
std::atomic<bool> print_lines = false;

}  // namespace

void PrintLogLines(bool print) {
  print_lines = print;
}

void WriteLogLine(std::wstring message) {
  if (message.size() > kLongestMessage) message.resize(kLongestMessage);
  const std::wstring line =
      TimeStamp(platform::LocalTime()) + L"  " + OneLine(std::move(message)) + L"\r\n";
  const std::string bytes = Utf8FromWide(line);
  if (print_lines) platform::WriteStandardOutput(line);
  platform::WriteDebugOutput(line);

  const std::wstring path = DataDir() + L"\\service.log";
  GuardLock lock(LogGuard);
  AppendToLineFile(path, kRotateAboveBytes, bytes);
}

}  // namespace kestrelon

#include "core/service_log.h"

#include <atomic>
#include <optional>

#include "base/guard.h"
#include "base/text.h"
#include "core/data_dir.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/files.h"

namespace kestrelon {
namespace {

// A buffer of 4096 characters with its closing null.
constexpr std::size_t kLongestMessage = 4095;
constexpr std::uint64_t kRotateAboveBytes = 0x200000;

// Atomic because threads of the platform may log while the entry sets it.
std::atomic<bool> print_lines = false;

// Serves all files that are written line by line. A leaf: nothing is taken under it.
Guard LogGuard("LogGuard", GuardRank::kLeaf);

std::wstring LineOf(const std::wstring& message) {
  std::wstring stamp;
  if (const std::optional<platform::CalendarTime> now = platform::LocalTime()) {
    stamp = Format(L"%04u-%02u-%02u %02u:%02u:%02u", now->year, now->month, now->day, now->hour,
                   now->minute, now->second);
  }
  return stamp + L"  " + message + L"\r\n";
}

void RotateIfLarge(const std::wstring& path) {
  platform::FileInformation information;
  if (platform::QueryFileInformation(path, information) != platform::kSuccess) return;
  if (information.size <= kRotateAboveBytes) return;
  (void)platform::RenameFile(path, path + L".old", platform::kReplaceExisting);
}

}  // namespace

void PrintLogLines(bool print) {
  print_lines = print;
}

void WriteLogLine(std::wstring message) {
  if (message.size() > kLongestMessage) message.resize(kLongestMessage);
  const std::wstring line = LineOf(message);
  const std::string bytes = Utf8FromWide(line);
  if (print_lines) platform::WriteStandardOutput(line);
  platform::WriteDebugOutput(line);

  GuardLock lock(LogGuard);
  const std::wstring path = DataDir() + L"\\service.log";
  RotateIfLarge(path);
  platform::File file;
  if (platform::OpenFile(path, platform::kAppendData, platform::kShareRead, platform::kOpenAlways,
                         platform::kNormalFile, file) != platform::kSuccess) {
    return;
  }
  std::uint32_t written = 0;
  (void)platform::WriteFileBytes(file, bytes.data(), static_cast<std::uint32_t>(bytes.size()),
                                 written);
}

}  // namespace kestrelon

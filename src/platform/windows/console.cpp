#include "platform/console.h"

#include "platform/windows/owned.h"

#include <shellapi.h>

#include <atomic>

#include "base/text.h"

namespace kestrelon::platform {
namespace {

// Atomic because the platform calls StopRequested on a thread of its own.
std::atomic<void (*)()> stop_handler = nullptr;

BOOL WINAPI StopRequested(DWORD /*kind*/) {
  if (void (*const handler)() = stop_handler.load()) handler();
  return TRUE;
}

void WriteUtf8(DWORD stream, const std::wstring& text) {
  const HANDLE handle = GetStdHandle(stream);
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return;
  const std::string bytes = Utf8FromWide(text);
  std::size_t done = 0;
  while (done < bytes.size()) {
    DWORD written = 0;
    const auto rest = static_cast<DWORD>(bytes.size() - done);
    if (!WriteFile(handle, bytes.data() + done, rest, &written, nullptr) || written == 0) return;
    done += written;
  }
}

}  // namespace

std::vector<std::wstring> CommandLineArguments() {
  int count = 0;
  const LocalMemory<LPWSTR*> arguments(CommandLineToArgvW(GetCommandLineW(), &count));
  if (!arguments || count < 1) return {};
  return {arguments.get() + 1, arguments.get() + count};
}

void WriteStandardOutput(const std::wstring& text) {
  WriteUtf8(STD_OUTPUT_HANDLE, text);
}

void WriteStandardError(const std::wstring& text) {
  WriteUtf8(STD_ERROR_HANDLE, text);
}

void WriteDebugOutput(const std::wstring& text) {
  OutputDebugStringW(text.c_str());
}

Code SetConsoleStopHandler(void (*handler)()) {
  stop_handler = handler;
  return SetConsoleCtrlHandler(StopRequested, TRUE) ? kSuccess : GetLastError();
}

}  // namespace kestrelon::platform

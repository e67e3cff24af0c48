// What code needs that the compiler guards against overwritten return addresses: the value that is
// laid before them, and the end of a process in which one was changed. Those of the compiler's own
// library call for a provider of random numbers before main, when libraries are still looked for
// beside the executable.
#include <windows.h>

#include <cstdint>

extern "C" {

std::uintptr_t __stack_chk_guard = 0;

[[noreturn]] void __stack_chk_fail() {
  // Ends the process without running anything more of it, for it is no longer to be trusted.
  asm volatile("int $0x29" : : "c"(FAST_FAIL_STACK_COOKIE_CHECK_FAILURE));
  __builtin_unreachable();
}

}  // extern "C"

namespace {

// Ahead of all other initialisation, and itself unguarded: the value changes in its middle. Nobody
// outside knows where the system has put the stack and this program, nor all of the clocks.
[[gnu::constructor(101), gnu::no_stack_protector]] void SetGuard() {
  LARGE_INTEGER ticks{};
  FILETIME time{};
  QueryPerformanceCounter(&ticks);
  GetSystemTimeAsFileTime(&time);
  constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;  // odd, its bits without a pattern
  std::uint64_t value = 0;
  const std::uint64_t parts[] = {
      static_cast<std::uint64_t>(ticks.QuadPart),
      time.dwLowDateTime,
      reinterpret_cast<std::uintptr_t>(&value),
      GetCurrentProcessId(),
      reinterpret_cast<std::uintptr_t>(&__stack_chk_guard),
      GetCurrentThreadId(),
  };
  for (const std::uint64_t part : parts) {
    value = (value ^ part) * kSpread;
    value ^= value >> 32U;
  }
  // The lowest byte is zero, where a text that runs over would end.
  __stack_chk_guard = value << 8U;
}

}  // namespace

#include "core/health_line.h"

#include <cstdint>

#include "core/service_log.h"
#include "filtering/filter_engine.h"
#include "modules/module_processes.h"
#include "platform/clock.h"
#include "platform/processes.h"

namespace kestrelon {
namespace {

constexpr std::uint64_t kFirstLineAfterMs = 300'000;
constexpr std::uint64_t kLineSpacingMs = 3'600'000;
constexpr double kMsInAnHour = 3'600'000.0;
constexpr double kBytesInAMebibyte = 1'048'576.0;

double Mebibytes(std::uint64_t bytes) {
  return static_cast<double>(bytes) / kBytesInAMebibyte;
}

bool LineIsDue(std::uint64_t now) {
  if (now - Core.StartTick < kFirstLineAfterMs) return false;
  return Core.LastHealthTick == 0 || now - Core.LastHealthTick >= kLineSpacingMs;
}

}  // namespace

void HealthLine() {
  const std::uint64_t now = platform::TickMilliseconds();
  if (!LineIsDue(now)) return;
  Core.LastHealthTick = now;

  // Figures that can't be read show as zeros: the line is no place to report that.
  platform::MemoryUse memory;
  std::uint32_t handles = 0;
  (void)platform::OwnMemoryUse(memory);
  (void)platform::OwnHandleCount(handles);

  const std::wstring& error = Core.LastError;
  LogService(
      L"Health: up %.1f h, memory %.1f MB (private %.1f MB), %lu handles, protection %s, "
      L"%zu filters, net events %llu (Kestrelon drops %llu), applies %u (failed %u), restored "
      L"after tampering %u, changed files blocked %u, modules running %d%s%s",
      static_cast<double>(now - Core.StartTick) / kMsInAnHour, Mebibytes(memory.working_set_bytes),
      Mebibytes(memory.private_bytes), handles, Core.CurrentConfig.enabled ? L"on" : L"OFF",
      FilterCount(TheEngine), Core.NetEvents.load(), Core.NetDrops.load(), Core.ApplyCount.load(),
      Core.ApplyFailures.load(), Core.TamperRestores.load(), Core.ChangedFilesBlocked.load(),
      static_cast<int>(ModuleProcessCount()), error.empty() ? L"" : L", error: ", error);
}

}  // namespace kestrelon

// The state of the whole process. It exists once, from process start to process end.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "base/guard.h"
#include "config/config.h"
#include "platform/clock.h"
#include "platform/wait.h"

namespace kestrelon {

// Outermost guard; recursive, because publishing and saving take it again under it.
extern RecursiveGuard ConfigGuard;

struct CoreState {
  // The one live configuration. A client replaces it as a whole; expiry, following, pruning and
  // what compiling learns edit it in place.
  Config CurrentConfig GUARDED_BY(ConfigGuard);
  // Text of the last failed apply; empty when the last apply worked.
  std::wstring LastError GUARDED_BY(ConfigGuard);
  // How the start came to its configuration when not by reading it, shown until a configuration
  // has been accepted again: "", "restored" or "strict"; "", "corrupt" or "missing"; and the source
  // of a restored one, "lastgood" or the backup's time.
  std::wstring FallbackKind GUARDED_BY(ConfigGuard);
  std::wstring FallbackCause GUARDED_BY(ConfigGuard);
  std::wstring FallbackFrom GUARDED_BY(ConfigGuard);
  // The boot-time filters are in place; when they are to be tried again (tick in ms, 0 for never)
  // and after how long the next time (ms, 0 while nothing fails).
  bool BootInstalled GUARDED_BY(ConfigGuard) = false;
  std::uint64_t BootRetryAt GUARDED_BY(ConfigGuard) = 0;
  std::uint64_t BootRetryStep GUARDED_BY(ConfigGuard) = 0;

  // Set once when the process starts.
  std::uint64_t StartTick = platform::TickMilliseconds();

  // The loop's thread only: tick of the last health line, 0 before the first.
  std::uint64_t LastHealthTick = 0;

  // Atomic because threads of the platform set or count them and must not wait for ConfigGuard.
  std::atomic<bool> Stopping = false;  // set first thing by CoreStop
  std::atomic<std::uint32_t> ApplyCount = 0;
  std::atomic<std::uint32_t> ApplyFailures = 0;
  std::atomic<std::uint32_t> TamperRestores = 0;  // audits that found a difference
  std::atomic<std::uint32_t> ChangedFilesBlocked = 0;
  std::atomic<std::uint64_t> NetEvents = 0;
  std::atomic<std::uint64_t> NetDrops = 0;        // of them, by a filter of the product's
  std::atomic<bool> ChangedFilePending = false;   // a blocked file awaits its verification
  std::atomic<bool> WatchRebuildPending = false;  // a watched directory was lost
  std::atomic<bool> BlocklistsChanged = false;    // a refresh brought another list
  // What the file watch calls with a changed directory (lower case), first of all. Null until the
  // start has stored it.
  std::atomic<void (*)(const std::wstring& directory)> DirectoryChangedHook = nullptr;

  // Any thread may set these.
  platform::Event WakeEvent{platform::Event::Reset::kAutomatic};
  platform::Event StopEvent{platform::Event::Reset::kManual};
};

// The one state of the process.
extern CoreState Core;

}  // namespace kestrelon

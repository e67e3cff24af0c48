// The state of the whole process. It exists once, from process start to process end.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "base/guard.h"
#include "config/config.h"
#include "platform/wait.h"

namespace kestrelon {

inline constexpr const wchar_t* kVersion = L"1.2.2";
inline constexpr const wchar_t* kBuild = L"48";

// Outermost guard; recursive, because publishing and saving take it again under it.
extern RecursiveGuard ConfigGuard;

struct CoreState {
  // The one live configuration; replaced only as a whole by SetConfig.
  Config CurrentConfig GUARDED_BY(ConfigGuard);
  // Text of the last failed apply; empty when the last apply worked.
  std::wstring LastError GUARDED_BY(ConfigGuard);
  // How the start came to its configuration when not by reading it, shown until a configuration
  // has been accepted again: "", "restored" or "strict"; "", "corrupt" or "missing"; and the source
  // of a restored one, "lastgood" or the backup's time.
  std::wstring FallbackKind GUARDED_BY(ConfigGuard);
  std::wstring FallbackCause GUARDED_BY(ConfigGuard);
  std::wstring FallbackFrom GUARDED_BY(ConfigGuard);

  // Atomic because threads of the platform set or count them and must not wait for ConfigGuard.
  std::atomic<bool> Stopping = false;  // set first thing by CoreStop
  std::atomic<std::uint32_t> ApplyCount = 0;
  std::atomic<std::uint32_t> ApplyFailures = 0;
  std::atomic<std::uint32_t> ChangedFilesBlocked = 0;
  std::atomic<bool> ChangedFilePending = false;  // a blocked file awaits its verification

  // Any thread may set these.
  platform::Event WakeEvent{platform::Event::Reset::kAutomatic};
  platform::Event StopEvent{platform::Event::Reset::kManual};
};

// The one state of the process.
extern CoreState Core;

}  // namespace kestrelon

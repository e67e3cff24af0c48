// Where the product stands with its own update: what the status tells, and the flags by which the
// update threads, the core loop and the compiler meet.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "base/guard.h"
#include "config/config.h"
#include "config/json.h"
#include "updates/update_manifest.h"

namespace kestrelon {

// Values of UpdateState::state.
inline constexpr const wchar_t* kUpdateIdle = L"idle";
inline constexpr const wchar_t* kUpdateChecking = L"checking";
inline constexpr const wchar_t* kUpdateAvailable = L"available";
inline constexpr const wchar_t* kUpdateDownloading = L"downloading";
inline constexpr const wchar_t* kUpdateVerifying = L"verifying";
inline constexpr const wchar_t* kUpdateInstalling = L"installing";
inline constexpr const wchar_t* kUpdateError = L"error";

// How the last installation went.
struct LastInstall {
  std::wstring version;
  std::wstring result;    // "ok" or "failed"; empty when there was none
  std::wstring detail;    // why it failed; empty on success
  std::int64_t time = 0;  // 100 ns steps since 1601-01-01 UTC
};

struct UpdateState {
  std::wstring state = kUpdateIdle;
  std::wstring message;              // of an error, else empty
  std::int32_t progress = 0;         // per cent, while downloading
  std::int64_t LastUpdateCheck = 0;  // last good check; 100 ns steps since 1601-01-01 UTC, 0 never
  bool available = false;            // `latest` is newer than this build
  UpdateManifest latest;             // of the last good check
  LastInstall last_install;
};

// A leaf; not held during a transfer.
extern Guard UpdateGuard;
extern UpdateState Update GUARDED_BY(UpdateGuard);

// Atomic because the update threads, the loop and compiling threads share them without waiting.
struct UpdateFlags {
  // A check or an installation runs. Set and cleared by the worker alone, and cleared as the last
  // act of the update thread.
  std::atomic<bool> busy = false;
  std::atomic<bool> UpdateRuleWanted = false;     // a transfer needs the way out now
  std::atomic<bool> UpdateRuleInstalled = false;  // it is in force, or nothing needs allowing
  std::atomic<bool> UpdateStatusChanged = false;  // subscribers are to be told
  std::atomic<bool> stop = false;                 // the service is stopping
};
extern UpdateFlags UpdateSignals;

// Goes into another state, a download at 0 per cent, and has subscribers told.
void SetUpdateState(const std::wstring& state, const std::wstring& message) EXCLUDES(UpdateGuard);

// The present state's name.
[[nodiscard]] std::wstring UpdateStateName() EXCLUDES(UpdateGuard);

// What the status says of updates. Reads the registry.
[[nodiscard]] Json UpdateStatus(const Config& config) EXCLUDES(UpdateGuard);

}  // namespace kestrelon

#include "updates/update_worker.h"

#include <thread>
#include <utility>

#include "base/start_thread.h"
#include "core/service_log.h"
#include "platform/clock.h"
#include "updates/check_update.h"
#include "updates/install_update.h"
#include "updates/reopen_window.h"
#include "updates/report_install.h"
#include "updates/update_directory.h"
#include "updates/update_settings.h"
#include "updates/update_state.h"
#include "updates/update_transfer.h"

namespace kestrelon {
namespace {

// The first check falls 10 to 15 minutes after the start, at a different moment on each machine.
constexpr std::uint64_t kLeastFirstDelayMs = 600000;
constexpr std::uint64_t kFirstDelaySpreadMs = 300000;
constexpr std::uint64_t kRetrySpacingMs = 3600000;
constexpr std::int64_t kCheckInterval = 864000000000;  // 24 hours in 100 ns steps
constexpr std::uint64_t kCleanUpDelayMs = 180000;

struct UpdateSchedule {
  std::uint64_t start = 0;                  // tick in ms
  std::uint64_t FirstUpdateCheckDelay = 0;  // ms from then on
  std::uint64_t last_attempt = 0;           // tick of the last start of a check, 0 for none
  bool directory_cleaned = false;
};

// Whoever starts the update thread holds this from the look at `busy` until the thread runs: of two
// that come at once, the second sees the first one's thread. That thread itself never takes it, so
// that under it a thread which has cleared `busy` can be joined.
Guard UpdateThreadGuard("UpdateThreadGuard", GuardRank::kSubsystem);
std::thread UpdateThread GUARDED_BY(UpdateThreadGuard);  // the last one
UpdateSchedule Schedule GUARDED_BY(UpdateThreadGuard);

template <typename Routine>
bool StartUpdateThread(Routine routine, std::wstring& error) REQUIRES(UpdateThreadGuard) {
  if (UpdateThread.joinable()) UpdateThread.join();  // it has done its work
  UpdateSignals.busy = true;
  if (StartThread(UpdateThread, [routine = std::move(routine)] {
        routine();
        UpdateSignals.busy = false;
      })) {
    return true;
  }
  error = L"the system has no room for the thread of the update";
  LogService(L"Update not started: %s", error);
  SetUpdateState(kUpdateError, error);
  UpdateSignals.busy = false;
  return false;
}

bool InstallUnderWay(const std::wstring& state) {
  return state == kUpdateDownloading || state == kUpdateVerifying || state == kUpdateInstalling;
}

// Once, when what came up with the service has come to rest.
void CleanOnce(const std::wstring& state) REQUIRES(UpdateThreadGuard) {
  const std::uint64_t running_ms = platform::TickMilliseconds() - Schedule.start;
  if (Schedule.directory_cleaned || running_ms <= kCleanUpDelayMs) return;
  Schedule.directory_cleaned = true;
  if (!InstallUnderWay(state)) CleanUpdateDirectory();
}

// A check that was made while the clock was ahead does not count.
bool CheckedLately() EXCLUDES(UpdateGuard) {
  const std::int64_t now = platform::SystemTime();
  GuardLock lock(UpdateGuard);
  const std::int64_t last = Update.LastUpdateCheck;
  return last != 0 && last <= now && now - last < kCheckInterval;
}

bool CheckIsDue(const Config& config) REQUIRES(UpdateThreadGuard) {
  const std::uint64_t tick = platform::TickMilliseconds();
  if (!config.updates_auto_check || tick - Schedule.start < Schedule.FirstUpdateCheckDelay) {
    return false;
  }
  const bool attempted_lately =
      Schedule.last_attempt != 0 && tick - Schedule.last_attempt < kRetrySpacingMs;
  return !attempted_lately && !CheckedLately();
}

bool MayCheck(const Config& config, bool manual, const std::wstring& state)
    REQUIRES(UpdateThreadGuard) {
  if (manual) return state != kUpdateInstalling;
  return !InstallUnderWay(state) && CheckIsDue(config);
}

// The update that was found, if it may be installed now.
bool TakeLatest(UpdateManifest& manifest, std::wstring& error) EXCLUDES(UpdateGuard) {
  GuardLock lock(UpdateGuard);
  if (Update.state == kUpdateInstalling) {
    error = L"the update is already being installed";
    return false;
  }
  if (!Update.available) {
    error = L"no update is available";
    return false;
  }
  manifest = Update.latest;
  return true;
}

std::uint32_t SessionOrNone(std::int64_t session) {
  return session < 0 || session > kNoSession ? kNoSession : static_cast<std::uint32_t>(session);
}

}  // namespace

void StartUpdateSchedule() {
  {
    GuardLock lock(UpdateThreadGuard);
    Schedule.start = platform::TickMilliseconds();
    Schedule.FirstUpdateCheckDelay =
        kLeastFirstDelayMs + platform::PerformanceCounter() % kFirstDelaySpreadMs;
  }
  const std::int64_t last_check = StoredLastCheck();
  GuardLock lock(UpdateGuard);
  Update.LastUpdateCheck = last_check;
}

void UpdateWorker(const Config& config, bool manual) {
  if (UpdateSignals.stop) return;
  ReopenRequestedWindow();
  // An installer that ended well would have stopped the service.
  if (!UpdateSignals.busy && UpdateStateName() == kUpdateInstalling) ReportInstallOutcome(false);

  GuardLock lock(UpdateThreadGuard);
  if (UpdateSignals.busy || UpdateSignals.stop) return;
  const std::wstring state = UpdateStateName();
  CleanOnce(state);
  if (!MayCheck(config, manual, state)) return;
  Schedule.last_attempt = platform::TickMilliseconds();
  std::wstring told;  // in the log and the state already
  (void)StartUpdateThread([manual] { CheckForUpdate(manual); }, told);
}

bool RequestInstall(std::int64_t session, const std::wstring& language, std::wstring& error) {
  GuardLock lock(UpdateThreadGuard);
  if (UpdateSignals.stop) {
    error = L"the service is stopping";
    return false;
  }
  if (UpdateSignals.busy) {
    error = L"an update check or download is already running";
    return false;
  }
  UpdateManifest manifest;
  if (!TakeLatest(manifest, error)) return false;
  return StartUpdateThread([manifest = std::move(manifest), session = SessionOrNone(session),
                            language] { InstallThread(manifest, session, language); },
                           error);
}

void StopUpdates() {
  UpdateSignals.stop = true;
  CancelUpdateTransfers();
  std::thread thread;
  {
    GuardLock lock(UpdateThreadGuard);
    thread = std::move(UpdateThread);
  }
  if (thread.joinable()) thread.join();
}

}  // namespace kestrelon

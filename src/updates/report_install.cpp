#include "updates/report_install.h"

#include <optional>

#include "base/format.h"
#include "core/service_log.h"
#include "core/version.h"
#include "events/activity_log.h"
#include "platform/clock.h"
#include "updates/reopen_window.h"
#include "updates/update_directory.h"
#include "updates/update_settings.h"
#include "updates/update_state.h"

namespace kestrelon {
namespace {

// The running program is the proof; the helper's exit code only explains a failure.
LastInstall OutcomeOf(const PendingInstall& pending, std::optional<std::uint32_t> helper_exit) {
  LastInstall outcome{pending.version, L"ok", L"", platform::SystemTime()};
  if (pending.build == static_cast<std::uint32_t>(kBuild)) return outcome;
  outcome.result = L"failed";
  outcome.detail = helper_exit ? Format(L"the installer ended with code %u", *helper_exit)
                               : L"the installation did not finish";
  return outcome;
}

void Tell(const LastInstall& outcome) {
  if (outcome.detail.empty()) {
    LogService(L"Update to %s installed", outcome.version);
    ActivityNote(L"update installed: Kestrelon " + outcome.version);
  } else {
    LogService(L"Update to %s FAILED: %s", outcome.version, outcome.detail);
    ActivityNote(L"update FAILED: " + outcome.detail);
  }
}

void ShowLastInstall() {
  LastInstall last = StoredLastInstall();
  GuardLock lock(UpdateGuard);
  Update.last_install = std::move(last);
}

}  // namespace

void ReportInstallOutcome(bool at_start) {
  const std::optional<PendingInstall> pending = StoredPendingInstall();
  if (!pending) return;
  const std::optional<std::uint32_t> helper_exit = StoredHelperExit();
  if (!at_start && !helper_exit) return;  // the helper is still at work

  const LastInstall outcome = OutcomeOf(*pending, helper_exit);
  // In this order: where power goes in between, the next start settles the same once more.
  StoreLastInstall(outcome);
  ForgetPendingInstall();
  Tell(outcome);
  ShowLastInstall();
  if (!outcome.detail.empty()) {
    SetUpdateState(kUpdateError, Format(L"the update to %s was not installed: %s", outcome.version,
                                        outcome.detail));
  }
  if (pending->session == kNoSession) return;
  if (at_start) {
    RequestReopen(pending->session);
  } else {
    ReopenWindow(pending->session);
  }
}

void FinishPastInstall() {
  ReportInstallOutcome(true);
  ShowLastInstall();
  CleanUpdateDirectory();
}

}  // namespace kestrelon

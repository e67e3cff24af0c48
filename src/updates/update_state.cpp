#include "updates/update_state.h"

#include "core/core_state.h"
#include "updates/update_settings.h"

namespace kestrelon {
namespace {

Json LatestStatus(const UpdateManifest& latest) {
  Json status;
  status["version"] = latest.version;
  status["build"] = latest.build;
  status["date"] = latest.date;
  status["size"] = latest.size;
  status["notes_sk"] = latest.notes_sk;
  status["notes_en"] = latest.notes_en;
  return status;
}

Json LastInstallStatus(const LastInstall& last) {
  Json status;
  status["version"] = last.version;
  status["result"] = last.result;
  status["detail"] = last.detail;
  status["time"] = last.time;
  return status;
}

}  // namespace

Guard UpdateGuard("UpdateGuard", GuardRank::kLeaf);
UpdateState Update;
UpdateFlags UpdateSignals;

void SetUpdateState(const std::wstring& state, const std::wstring& message) {
  {
    GuardLock lock(UpdateGuard);
    Update.state = state;
    Update.message = message;
    if (state == kUpdateDownloading) Update.progress = 0;
  }
  UpdateSignals.UpdateStatusChanged = true;
  Core.WakeEvent.Set();
}

std::wstring UpdateStateName() {
  GuardLock lock(UpdateGuard);
  return Update.state;
}

Json UpdateStatus(const Config& config) {
  const std::wstring channel = UpdateChannel();
  GuardLock lock(UpdateGuard);
  Json status;
  status["state"] = Update.state;
  status["auto"] = config.updates_auto_check;
  status["channel"] = channel;
  status["last_check"] = Update.LastUpdateCheck;
  if (!Update.message.empty()) status["error"] = Update.message;
  if (Update.state == kUpdateDownloading) status["progress"] = Update.progress;
  if (Update.available) status["latest"] = LatestStatus(Update.latest);
  if (!Update.last_install.result.empty()) {
    status["last_install"] = LastInstallStatus(Update.last_install);
  }
  return status;
}

}  // namespace kestrelon

#include "updates/check_update.h"

#include <string>

#include "base/format.h"
#include "core/service_log.h"
#include "core/version.h"
#include "deployment.h"
#include "events/activity_log.h"
#include "platform/clock.h"
#include "updates/manifest_signature.h"
#include "updates/update_directory.h"
#include "updates/update_manifest.h"
#include "updates/update_settings.h"
#include "updates/update_state.h"
#include "updates/update_traffic.h"
#include "updates/update_transfer.h"

namespace kestrelon {
namespace {

std::wstring ManifestAddress(const std::wstring& channel) {
  return std::wstring(kUpdateBase) +
         (channel == L"test" ? L"update/test/latest.json" : L"update/latest.json");
}

// The signature is tested first: the parser meets only what the vendor has written.
bool FetchManifest(const std::wstring& channel, UpdateManifest& manifest, std::wstring& error) {
  const std::wstring address = ManifestAddress(channel);
  std::string text;
  std::string signature;
  return DownloadText(address, kLongestUpdateManifest, text, error) &&
         DownloadText(address + L".sig", kLongestManifestSignature, signature, error) &&
         VerifyManifestSignature(text, signature, error) &&
         ParseUpdateManifest(text, channel, manifest, error);
}

// What an earlier check has found can still be installed.
void TellFailure(const std::wstring& channel, const std::wstring& error) {
  LogService(L"Update check failed (%s): %s", channel, error);
  ActivityNote(L"update check failed: " + error);
  SetUpdateState(kUpdateError, error);
}

void KeepLatest(const UpdateManifest& manifest, bool available) {
  const std::int64_t now = platform::SystemTime();
  StoreLastCheck(now);
  GuardLock lock(UpdateGuard);
  Update.LastUpdateCheck = now;
  Update.available = available;
  Update.latest = manifest;
}

void TellLatest(const UpdateManifest& manifest, bool manual, bool available) {
  LogService(L"Update check (%s, %s): latest %s build %d - %s", manifest.channel,
             manual ? L"manual" : L"daily", manifest.version, manifest.build,
             available ? L"available" : L"this version is up to date");
  ActivityNote(available ? Format(L"update available: Kestrelon %s (build %d)", manifest.version,
                                  manifest.build)
                         : L"update check: up to date");
}

}  // namespace

void CheckForUpdate(bool manual) {
  SetUpdateState(kUpdateChecking, L"");
  NeedUpdateTraffic();
  const std::wstring channel = UpdateChannel();
  UpdateManifest manifest;
  std::wstring error;
  const bool fetched = FetchManifest(channel, manifest, error);
  EndUpdateTraffic();
  if (!fetched) {
    TellFailure(channel, error);
    return;
  }
  const bool available = manifest.build > kBuild;
  KeepLatest(manifest, available);
  TellLatest(manifest, manual, available);
  // What was downloaded for an update before this one is of no more use.
  if (available) CleanUpdateDirectory();
  SetUpdateState(available ? kUpdateAvailable : kUpdateIdle, L"");
}

}  // namespace kestrelon

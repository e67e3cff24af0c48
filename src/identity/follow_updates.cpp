// Many applications install each new version into a directory of its own, where no rule covers it.
// Place, publisher and product together say that a blocked program is such a version. What is
// listed then goes through the gates of every application again when it is compiled: a file that
// was exchanged after the checks here is held back there.
#include "identity/follow_updates.h"

#include <thread>
#include <utility>
#include <vector>

#include "base/start_thread.h"
#include "config/app_reference.h"
#include "config/config_store.h"
#include "config/json.h"
#include "control/subscribers.h"
#include "core/config_change.h"
#include "core/service_log.h"
#include "filtering/apply_config.h"
#include "identity/app_pattern.h"
#include "identity/file_identity.h"
#include "identity/follow_queue.h"
#include "identity/paths.h"
#include "identity/product_label.h"
#include "identity/same_family.h"
#include "identity/service_info.h"
#include "platform/clock.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

// Of the core's thread, which starts and stops the worker.
std::thread follow_worker;

void FollowQueuedPaths() {
  SeenPaths seen;
  for (std::wstring path; TakeFollow(path);) {
    if (seen.IsDue(path)) FollowUpdate(path);
  }
}

// Whether an entry stands for one file, which is there or not.
bool NamesOneFile(const AppEntry& app) {
  return !HasWildcard(app.path) && !IsServiceRef(app.path) && !IsPackageRef(app.path) &&
         !IsSystemApp(app.path);
}

// Whether an entry goes along with its application to other directories.
bool MayMove(const AppEntry& app) {
  return app.trust_updates && !app.signer.empty() && NamesOneFile(app);
}

// The file that an entry without wildcard stands for; empty for a package or an unknown service.
std::wstring FileOfEntry(const AppEntry& app) {
  if (IsPackageRef(app.path)) return {};
  if (!IsServiceRef(app.path)) return NormalizePath(ExpandPath(app.path));
  ServiceInfo service;
  return ResolveService(ServiceRefName(app.path), service) ? service.image_path : L"";
}

bool IsListed(const std::wstring& path) REQUIRES(ConfigGuard) {
  for (const AppEntry& app : Core.CurrentConfig.apps) {
    if (HasWildcard(app.path)) continue;
    if (platform::EqualIgnoringCase(FileOfEntry(app), path)) return true;
  }
  return false;
}

// A new file under a pattern needs filters of its own, and no entry.
bool ReApplyForPattern(const std::wstring& path) REQUIRES(ConfigGuard) {
  for (const AppEntry& app : Core.CurrentConfig.apps) {
    if (!HasWildcard(app.path) || !MatchPattern(app.path, path)) continue;
    LogService(L"%s matches %s - re-applying", path, app.path);
    ReApply(L"wildcard");
    return true;
  }
  return false;
}

// Whether a file comes from the publisher, and is the product, that the entry records.
bool IsOfSameOrigin(const AppEntry& app, const std::wstring& path) {
  const FileIdentity identity = IdentityFor(path);
  if (!identity.signed_ || identity.signer != app.signer) {
    LogService(L"Not following update %s: publisher \"%s\" does not match \"%s\"", path,
               identity.signer, app.signer);
    return false;
  }
  if (app.product.empty()) return true;
  const std::wstring product = ProductLabel(path);
  if (platform::EqualIgnoringCase(product, app.product)) return true;
  LogService(L"Not following update %s: product \"%s\" does not match \"%s\"", path, product,
             app.product);
  return false;
}

// Moves an entry to the new path; as long as the old file is there, lists the new one beside it.
void ListNewVersion(std::vector<AppEntry>& apps, std::size_t index, const std::wstring& path) {
  if (!IsExistingFile(ExpandPath(apps[index].path))) {
    apps[index].path = path;
    return;
  }
  AppEntry next = apps[index];
  next.path = path;
  next.added = platform::SystemTime();
  apps.push_back(std::move(next));
}

std::string AppUpdatedEvent(const AppEntry& old_entry, const std::wstring& path) {
  Json event;
  event["type"] = "app_updated";
  event["old_path"] = old_entry.path;
  event["new_path"] = path;
  event["signer"] = old_entry.signer;
  return event.Dump(false);
}

// Brings the new version into force, or leaves filters and configuration as they were.
void Follow(std::size_t index, const std::wstring& path) REQUIRES(ConfigGuard) {
  Config snapshot = Core.CurrentConfig;
  ListNewVersion(Core.CurrentConfig.apps, index, path);
  std::wstring error;
  bool config_changed = false;  // what compiling learns is saved with the entry
  if (!ApplyConfig(Core.CurrentConfig, error, config_changed)) {
    LogService(L"Following update %s failed: %s", path, error);
    Core.CurrentConfig = std::move(snapshot);
    ReApply(L"revert");
    return;
  }
  const AppEntry& old_entry = snapshot.apps[index];
  LogService(L"Update detected: %s -> %s (publisher \"%s\")", old_entry.path, path,
             old_entry.signer);
  SaveCurrentConfig();
  PublishEvent(AppUpdatedEvent(old_entry, path));
  PublishConfigEvent("config_changed");
}

// What pruning has to know of one entry, looked up once for all comparisons.
struct Version {
  bool may_be_removed = false;
  bool is_there = false;
  std::wstring file;  // empty when the entry is neither old version nor successor
  bool resolved = false;
};

std::vector<Version> LookAtVersions(const std::vector<AppEntry>& apps) {
  std::vector<Version> versions(apps.size());
  for (std::size_t i = 0; i < apps.size(); ++i) {
    if (apps[i].signer.empty() || !NamesOneFile(apps[i])) continue;
    Version& version = versions[i];
    version.file = ExpandPath(apps[i].path);
    // Links make no difference to this, so the file is opened only to compare its place.
    version.is_there = IsExistingFile(version.file);
    version.may_be_removed = MayMove(apps[i]) && !version.is_there;
  }
  return versions;
}

const std::wstring& ResolvedFile(Version& version) {
  if (!version.resolved) version.file = NormalizePath(version.file);
  version.resolved = true;
  return version.file;
}

// Whether the file of another entry of the same publisher and action stands where a version of the
// indexed one would.
bool HasSuccessor(const std::vector<AppEntry>& apps, std::vector<Version>& versions,
                  std::size_t index) {
  for (std::size_t i = 0; i < apps.size(); ++i) {
    if (i == index || !versions[i].is_there) continue;
    if (apps[i].allow != apps[index].allow || apps[i].signer != apps[index].signer) continue;
    if (SameFamilyPath(ResolvedFile(versions[index]), ResolvedFile(versions[i]))) return true;
  }
  return false;
}

}  // namespace

void StartFollowWorker() {
  OpenFollowQueue();
  if (!StartThread(follow_worker, FollowQueuedPaths)) {
    LogService(L"Cannot start the worker that follows updates of applications");
  }
}

void StopFollowWorker() {
  StopFollowQueue();
  if (follow_worker.joinable()) follow_worker.join();
}

void FollowUpdate(const std::wstring& path) {
  GuardLock lock(ConfigGuard);
  if (Core.Stopping || !Core.CurrentConfig.enabled || IsSystemApp(path)) return;
  if (IsListed(path)) return;  // the block has another reason
  if (ReApplyForPattern(path)) return;
  const std::vector<AppEntry>& apps = Core.CurrentConfig.apps;
  for (std::size_t i = 0; i < apps.size(); ++i) {
    if (!MayMove(apps[i]) || !SameFamilyPath(ExpandPath(apps[i].path), path)) continue;
    // The first of the family decides.
    if (IsOfSameOrigin(apps[i], path)) Follow(i, path);
    return;
  }
}

bool PruneOldVersions() {
  std::vector<AppEntry>& apps = Core.CurrentConfig.apps;
  std::vector<Version> versions = LookAtVersions(apps);
  bool removed = false;
  for (std::size_t i = 0; i < apps.size();) {
    // Without a successor the application may be in the middle of an update, or its drive away.
    if (!versions[i].may_be_removed || !HasSuccessor(apps, versions, i)) {
      ++i;
      continue;
    }
    LogService(L"Removing rule of old version (file gone): %s", apps[i].path);
    const auto offset = static_cast<std::ptrdiff_t>(i);
    apps.erase(apps.begin() + offset);
    versions.erase(versions.begin() + offset);
    removed = true;
  }
  return removed;
}

}  // namespace kestrelon

#include "filtering/compile_apps.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "base/format.h"
#include "config/app_reference.h"
#include "core/temporary_apps.h"
#include "identity/app_pattern.h"
#include "identity/file_identity.h"
#include "identity/file_usn.h"
#include "identity/product_label.h"
#include "identity/service_info.h"
#include "platform/clock.h"
#include "platform/security.h"

namespace kestrelon {
namespace {

// A path, a signer and a hash: what the piece of a usual file takes.
constexpr std::size_t kUsualPieceLength = 192;

std::vector<std::wstring> kept_blocked_paths GUARDED_BY(ConfigGuard);

// One application on its way through its gate.
struct AppGate {
  AppEntry& app;
  FilterPlan& plan;
  // Taken before the first file, so that they hold for every file of a pattern.
  bool pinned = false;       // permitted by hash alone, whatever signatures say
  bool first_sight = false;  // nothing is recorded yet: what is there now is learnt
  bool held = false;         // at least one file is held back
};

// One file of an application.
struct GatedFile {
  const std::wstring& path;
  std::int64_t usn = -1;  // taken before the identity, so that a change in between is not lost
  FileIdentity identity;
};

// For the fingerprint, which is made anew in every pass of the core loop.
void AppendPiece(FilterPlan& plan, std::initializer_list<std::wstring_view> parts) {
  for (const std::wstring_view part : parts) plan.fingerprint += part;
  plan.fingerprint += L';';
}

void AddFileEntry(AppGate& gate, const GatedFile& file, bool hash_pinned) {
  PlanEntry entry;
  entry.path = file.path;
  entry.allow = gate.app.allow;
  entry.inbound = gate.app.inbound;
  entry.hash_pinned = hash_pinned;
  entry.usn = hash_pinned ? file.usn : -1;
  gate.plan.entries.push_back(std::move(entry));
}

void HoldFile(AppGate& gate, const std::wstring& path, std::wstring warning) {
  PlanEntry entry;
  entry.path = path;
  entry.integrity_block = true;
  gate.plan.entries.push_back(std::move(entry));
  gate.plan.warnings.push_back(std::move(warning));
  gate.held = true;
}

bool IsSignedBy(const FileIdentity& identity, const std::wstring& signer) {
  return identity.signed_ && identity.signer == signer;
}

void LearnSigner(AppEntry& app, const FileIdentity& identity, FilterPlan& plan) {
  if (!app.signer.empty() || !identity.signed_) return;
  app.signer = identity.signer;
  plan.config_changed = true;
}

void LearnProduct(AppGate& gate, const GatedFile& file) {
  AppEntry& app = gate.app;
  if (!app.product.empty() || app.signer.empty()) return;
  if (!IsSignedBy(file.identity, app.signer)) return;
  std::wstring label = ProductLabel(file.path);
  if (label.empty()) return;
  app.product = std::move(label);
  gate.plan.config_changed = true;
}

// Permits a file by its hash, learns it at first sight, or holds it back.
void PassByHash(AppGate& gate, const GatedFile& file) {
  const std::wstring& hash = file.identity.sha256;
  // A file that can't be read gets neither a permission nor a block of its own.
  if (hash.empty()) return;
  std::vector<std::wstring>& accepted = gate.app.sha256;
  if (std::find(accepted.begin(), accepted.end(), hash) == accepted.end()) {
    if (!gate.first_sight) {
      HoldFile(gate, file.path,
               Format(L"Kept blocked: %s has changed since it was allowed (unsigned program)",
                      file.path));
      return;
    }
    accepted.push_back(hash);
    gate.plan.config_changed = true;
  }
  AddFileEntry(gate, file, true);
}

void HoldForSigner(AppGate& gate, const GatedFile& file) {
  const std::wstring& signer = gate.app.signer;
  HoldFile(gate, file.path,
           file.identity.signed_
               ? Format(L"Kept blocked: %s is no longer signed by \"%s\" (signed by \"%s\")",
                        file.path, signer, file.identity.signer)
               : Format(L"Kept blocked: %s is no longer signed by \"%s\" (unsigned)", file.path,
                        signer));
}

void GateFile(AppGate& gate, const GatedFile& file) {
  const FileIdentity& identity = file.identity;
  const AppEntry& app = gate.app;
  AppendPiece(gate.plan, {file.path, identity.exists ? L"|1|" : L"|0|", identity.signer, L"|",
                          identity.sha256});
  if (!gate.pinned) LearnSigner(gate.app, identity, gate.plan);
  if (app.allow && app.signer.empty() && identity.exists && !IsSystemApp(file.path)) {
    PassByHash(gate, file);
    return;
  }
  LearnProduct(gate, file);
  if (app.allow && !app.signer.empty() && identity.exists && !IsSignedBy(identity, app.signer)) {
    HoldForSigner(gate, file);
    return;
  }
  AddFileEntry(gate, file, false);
}

void GateFiles(AppEntry& app, FilterPlan& plan) REQUIRES(ConfigGuard) {
  const std::vector<std::wstring> files = ExpandAppPattern(app.path);
  if (files.empty()) {
    // Not here now; once it is, its piece changes.
    AppendPiece(plan, {L"none:", app.path});
    return;
  }
  const bool by_hash = app.allow && app.signer.empty();
  AppGate gate{app, plan};
  gate.pinned = by_hash && !app.sha256.empty();
  gate.first_sight = by_hash && app.sha256.empty();
  for (const std::wstring& file : files) {
    const std::int64_t usn = by_hash ? FileUsn(file) : -1;
    GateFile(gate, {file, usn, IdentityFor(file)});
  }
  if (gate.held) kept_blocked_paths.push_back(app.path);
}

// A service is followed by the signer of its executable alone, which Windows itself replaces often.
void GateService(AppEntry& app, const std::wstring& name, FilterPlan& plan) REQUIRES(ConfigGuard) {
  ServiceInfo service;
  if (!ResolveService(name, service)) {
    AppendPiece(plan, {L"svc-missing:", name});
    plan.warnings.push_back(Format(L"Service not found (rule inactive): %s", name));
    return;
  }
  if (service.sid.empty() || service.sid_type == 0 || service.image_path.empty()) {
    AppendPiece(plan, {L"svc-nosid:", name});
    plan.warnings.push_back(Format(
        L"Service \"%s\" has no service SID, so it cannot be filtered on its own (rule inactive)",
        name));
    return;
  }
  const FileIdentity identity = IdentityFor(service.image_path);
  AppendPiece(plan, {L"svc:", name, L"|", service.image_path, L"|", identity.signer});
  LearnSigner(app, identity, plan);
  const bool held =
      app.allow && !app.signer.empty() && identity.exists && !IsSignedBy(identity, app.signer);
  if (held) {
    plan.warnings.push_back(Format(L"Kept blocked: service %s - %s is no longer signed by \"%s\"",
                                   name, service.image_path, app.signer));
    kept_blocked_paths.push_back(app.path);
  }
  PlanEntry entry;
  entry.path = service.image_path;
  entry.allow = app.allow && !held;
  entry.inbound = app.inbound && !held;
  entry.integrity_block = held;
  entry.service_sid = service.sid;
  entry.label = L"service " + name;
  plan.entries.push_back(std::move(entry));
}

void GatePackage(const AppEntry& app, const std::wstring& name, FilterPlan& plan) {
  std::wstring sid;
  if (platform::SidOfPackage(name, sid) != platform::kSuccess) sid.clear();
  AppendPiece(plan, {L"pkg:", name, L"|", sid});
  if (sid.empty()) {
    plan.warnings.push_back(Format(L"App package not recognised (rule inactive): %s", name));
    return;
  }
  PlanEntry entry;
  entry.path = app.path;
  entry.allow = app.allow;
  entry.inbound = app.inbound;
  entry.package_sid = std::move(sid);
  entry.label = L"app package " + name;
  plan.entries.push_back(std::move(entry));
}

}  // namespace

void CompileApps(Config& config, FilterPlan& plan) {
  kept_blocked_paths.clear();
  plan.entries.clear();
  plan.warnings.clear();
  plan.fingerprint.clear();
  plan.config_changed = false;

  const std::int64_t now = platform::SystemTime();
  const std::int64_t boot_time = BootTime();
  plan.fingerprint.reserve(config.apps.size() * kUsualPieceLength);
  for (AppEntry& app : config.apps) {
    if (HasEnded(app, now, boot_time)) continue;
    if (IsPackageRef(app.path)) {
      GatePackage(app, PackageRefName(app.path), plan);
    } else if (IsServiceRef(app.path)) {
      GateService(app, ServiceRefName(app.path), plan);
    } else {
      GateFiles(app, plan);
    }
  }
}

const std::vector<std::wstring>& KeptBlockedPaths() {
  return kept_blocked_paths;
}

}  // namespace kestrelon

#include "modules/module_list.h"

#include <algorithm>

#include "modules/known_modules.h"
#include "modules/module_manifest.h"
#include "modules/module_processes.h"
#include "modules/verify_module.h"
#include "platform/clock.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

Json NetworkEntryToJson(const ModuleNetworkEntry& entry) {
  Json value;
  value["dir"] = DirectionName(entry.direction);
  value["protocol"] = entry.protocol;
  value["port"] = entry.port;
  value["scope"] = entry.scope;
  value["why"] = entry.why;
  return value;
}

void AddManifest(const ModuleStatus& status, Json& value) {
  const ModuleManifest& manifest = status.manifest;
  value["name"] = manifest.name;
  value["version"] = manifest.version;
  value["publisher"] = manifest.publisher;
  value["description"] = manifest.description;
  value["grant"] = status.grant;
  value["permissions"] = JsonArray(manifest.permissions);
  value["network"] = JsonArray(manifest.network, NetworkEntryToJson);
}

Json StatusToJson(const Config& config, const ModuleStatus& status) {
  const ModuleEntry* const entry = FindModuleEntry(config, status.id);
  const bool enabled = entry != nullptr && entry->enabled;
  Json value;
  value["id"] = status.id;
  value["path"] = status.path;
  value["installed"] = status.installed;
  value["verified"] = status.verified;
  value["problem"] = status.problem;
  value["signer"] = status.signer;
  if (status.manifest_valid) AddManifest(status, value);
  value["enabled"] = enabled;
  value["approved_version"] = entry != nullptr ? entry->version : L"";
  value["needs_approval"] = enabled && status.manifest_valid && entry->grant != status.grant;
  value["active"] = ModuleIsActive(config, status);
  value["running"] = ModuleProcessCount(status.id);
  return value;
}

auto HasId(const std::wstring& id) {
  return [&id](const ModuleEntry& entry) { return platform::EqualIgnoringCase(entry.id, id); };
}

ModuleEntry* LastEntry(Config& config, const std::wstring& id) {
  const auto end = config.modules.rend();
  const auto found = std::find_if(config.modules.rbegin(), end, HasId(id));
  return found == end ? nullptr : &*found;
}

void TurnOff(Config& config, const ModuleChange& change) {
  if (ModuleEntry* const entry = LastEntry(config, change.id)) entry->enabled = false;
  if (!change.remove) return;
  const auto found = std::ranges::find_if(config.modules, HasId(change.id));
  if (found != config.modules.end()) config.modules.erase(found);
}

bool TurnOn(Config& config, const ModuleChange& change, std::wstring& error) {
  const ModuleStatus status = VerifyModule(change.id);
  if (!status.problem.empty()) {
    error = L"The module cannot be turned on: " + status.problem;
    return false;
  }
  // The file may have changed between the look and the click.
  if (change.grant != status.grant) {
    error = L"The module's permissions differ from what was shown - please look at them again.";
    return false;
  }
  ModuleEntry* entry = LastEntry(config, change.id);
  if (entry == nullptr) {
    entry = &config.modules.emplace_back();
    entry->id = change.id;
  }
  entry->enabled = true;
  entry->version = status.manifest.version;
  entry->grant = status.grant;
  entry->approved = platform::SystemTime();
  return true;
}

}  // namespace

Json ModuleStatusList(const Config& config) {
  return JsonArray(KnownModules(), [&config](const KnownModule& module) {
    return StatusToJson(config, VerifyModule(module.id));
  });
}

bool SetModule(Config& config, const ModuleChange& change, std::wstring& error) {
  if (FindKnownModule(change.id) == nullptr) {
    error = L"unknown module: " + change.id;
    return false;
  }
  if (change.enabled) return TurnOn(config, change, error);
  TurnOff(config, change);
  return true;
}

}  // namespace kestrelon

#include "events/allowed_logging.h"

#include <string>
#include <utility>

#include "config/app_reference.h"
#include "config/presets.h"
#include "events/allow_events.h"
#include "events/allowed_connections.h"
#include "events/net_events.h"
#include "identity/app_pattern.h"
#include "identity/service_info.h"
#include "platform/security.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

// Adds what a listed application stands for. A package or a service that isn't on the machine adds
// nothing.
void SelectApp(const std::wstring& text, AllowedSelection& selection) {
  if (IsPackageRef(text)) {
    std::wstring sid;
    if (platform::SidOfPackage(PackageRefName(text), sid) != platform::kSuccess) return;
    selection.log_sids.push_back(std::move(sid));
  } else if (IsServiceRef(text)) {
    ServiceInfo service;
    if (!ResolveService(ServiceRefName(text), service) || service.image_path.empty()) return;
    selection.log_paths.push_back(platform::LowerCase(service.image_path));
  } else {
    for (const std::wstring& file : ExpandAppPattern(text)) {
      selection.log_paths.push_back(platform::LowerCase(file));
    }
  }
}

bool IsTracked(const RuleEntry& rule) {
  return rule.enabled && rule.allow && platform::EqualIgnoringCase(rule.name, kDownloadsRule);
}

// Does nothing without a subscription: there is nobody to report to.
void SetAllowedLogging(bool on) REQUIRES(ConfigGuard) {
  const platform::EngineHandle session = NetEventSession();
  if (session == 0) return;
  if (on) LearnAllowLayers(session);
  SwitchAllowEvents(on);
}

}  // namespace

void RefreshAllowedSelection(const Config& config) {
  AllowedSelection selection;
  selection.every_app = config.log_allowed_apps.empty();
  for (const std::wstring& text : config.log_allowed_apps) SelectApp(text, selection);
  selection.log_all = config.enabled && config.log_allowed;
  for (const RuleEntry& rule : config.rules) {
    if (IsTracked(rule)) selection.tracked_rules.push_back(rule.name);
  }
  const bool on = selection.log_all || (config.enabled && !selection.tracked_rules.empty());
  SelectAllowed(std::move(selection), on);
  SetAllowedLogging(on);
}

}  // namespace kestrelon

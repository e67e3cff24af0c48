// From a configuration to its document. The order of the keys is fixed, so that saving what was
// read gives the same bytes and two versions of a file can be compared line by line.
#include "config/config_file.h"

namespace kestrelon {
namespace {

constexpr int kFormatVersion = 1;

const char* ActionText(bool allow) {
  return allow ? "allow" : "block";
}

const char* DirectionText(std::uint32_t direction) {
  switch (direction) {
    case kDirectionIn:
      return "in";
    case kDirectionBoth:
      return "both";
    default:
      return "out";
  }
}

Json AppToJson(const AppEntry& app) {
  Json object;
  object["path"] = app.path;
  object["action"] = ActionText(app.allow);
  object["inbound"] = app.inbound;
  object["added"] = app.added;
  object["signer"] = app.signer;
  object["product"] = app.product;
  if (app.expires != 0) object["expires"] = app.expires;
  if (app.until_reboot) object["until_reboot"] = true;
  object["trust_updates"] = app.trust_updates;
  if (!app.sha256.empty()) object["sha256"] = JsonArray(app.sha256);
  return object;
}

Json RuleToJson(const RuleEntry& rule) {
  Json object;
  object["name"] = rule.name;
  object["enabled"] = rule.enabled;
  object["action"] = ActionText(rule.allow);
  object["direction"] = DirectionText(rule.direction);
  object["protocol"] = rule.protocol;
  object["remote"] = rule.remote;
  object["remote_ports"] = rule.remote_ports;
  object["local_ports"] = rule.local_ports;
  object["app"] = rule.app;
  if (!rule.user.empty()) object["user"] = rule.user;
  return object;
}

Json ModuleToJson(const ModuleEntry& module) {
  Json object;
  object["id"] = module.id;
  object["enabled"] = module.enabled;
  object["version"] = module.version;
  object["grant"] = module.grant;
  object["approved"] = module.approved;
  return object;
}

}  // namespace

Json ConfigToJson(const Config& config) {
  Json document;
  document["version"] = kFormatVersion;
  document["enabled"] = config.enabled;
  document["allow_loopback"] = config.allow_loopback;
  document["boot_time_filter"] = config.boot_time_filter;
  document["notifications"] = config.notifications;
  document["notify_system"] = config.notify_system;
  document["log_allowed"] = config.log_allowed;
  document["log_allowed_apps"] = JsonArray(config.log_allowed_apps);
  document["blocklists"] = JsonArray(config.blocklists);
  document["blocklists_auto_update"] = config.blocklists_auto_update;
  document["updates_auto_check"] = config.updates_auto_check;
  document["custom_blocklist"] = config.custom_blocklist;
  document["presets_version"] = config.presets_version;
  document["apps"] = JsonArray(config.apps, AppToJson);
  document["rules"] = JsonArray(config.rules, RuleToJson);
  if (!config.modules.empty()) document["modules"] = JsonArray(config.modules, ModuleToJson);
  return document;
}

}  // namespace kestrelon

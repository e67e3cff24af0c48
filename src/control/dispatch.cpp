#include "control/dispatch.h"

#include <string_view>
#include <utility>

#include "blocklists/refresh_blocklists.h"
#include "config/app_reference.h"
#include "config/config_file.h"
#include "control/reply.h"
#include "core/config_change.h"
#include "core/service_log.h"
#include "core/status.h"
#include "events/activity_log.h"
#include "events/allowed_connections.h"
#include "identity/file_identity.h"
#include "identity/service_info.h"
#include "modules/module_list.h"
#include "modules/supervise_modules.h"
#include "updates/update_worker.h"

namespace kestrelon {
namespace {

using Handler = Json (*)(const Json& request);

Json Status(const Json& /*request*/) REQUIRES(ConfigGuard) {
  Json reply;
  BuildStatus(reply);
  return reply;
}

Json GetConfig(const Json& /*request*/) REQUIRES(ConfigGuard) {
  Json reply = OkReply();
  reply["config"] = ConfigToJson(Core.CurrentConfig);
  return reply;
}

// Reads the document before it takes the guard: a large one must not hold up the core.
Json ChangeConfig(const Json& request) EXCLUDES(ConfigGuard) {
  Config config;
  std::wstring error;
  if (!ConfigFromJson(request.Get("config"), config, error)) {
    return ErrorReply(L"Invalid configuration: " + error);
  }
  GuardLock lock(ConfigGuard);
  // Which modules run is not decided by this command, whatever a client sends back.
  config.modules = Core.CurrentConfig.modules;
  Json reply;
  SetConfig(reply, std::move(config));
  return reply;
}

Json GetModules(const Json& /*request*/) REQUIRES(ConfigGuard) {
  Json reply = OkReply();
  reply["modules"] = ModuleStatusList(Core.CurrentConfig);
  return reply;
}

// Applies at once, and starts or ends the module at once: the user stands before it and waits.
Json ChangeModule(const Json& request) REQUIRES(ConfigGuard) {
  const ModuleChange change = {request.Get("id").StringOr(L""), request.Get("enabled").boolean(),
                               request.Get("grant").StringOr(L""), request.Get("remove").boolean()};
  Config config = Core.CurrentConfig;
  std::wstring error;
  if (!SetModule(config, change, error)) return ErrorReply(error);
  Json reply;
  SetConfig(reply, std::move(config));
  if (!reply.Get("ok").boolean()) return reply;
  LogService(L"Module %s turned %s", change.id, change.enabled ? L"ON" : L"OFF");
  SuperviseModules(Core.CurrentConfig);
  return reply;
}

// The file that the client means; empty for a service that can't be resolved.
std::wstring FileOf(const std::wstring& path) {
  if (!IsServiceRef(path)) return path;
  ServiceInfo service;
  return ResolveService(ServiceRefName(path), service) ? service.image_path : L"";
}

Json FileInfo(const Json& request) {
  const std::wstring path = request.Get("path").StringOr(L"");
  if (path.empty()) return ErrorReply(L"missing path");
  const FileIdentity identity = IdentityFor(FileOf(path));
  Json reply = OkReply();
  reply["exists"] = identity.exists;
  reply["signed"] = identity.signed_;
  reply["signer"] = identity.signer;
  return reply;
}

Json GetLog(const Json& /*request*/) {
  Json reply = OkReply();
  reply["events"] = JsonArray(RecentBlockedEvents(), BlockedEventToJson);
  return reply;
}

bool LogsAllAllowed() EXCLUDES(ConfigGuard) {
  GuardLock lock(ConfigGuard);
  return Core.CurrentConfig.enabled && Core.CurrentConfig.log_allowed;
}

// The list may be long: it is written out with no guard held.
Json GetAllowed(const Json& /*request*/) EXCLUDES(ConfigGuard) {
  Json reply = OkReply();
  reply["enabled"] = LogsAllAllowed();
  const AllowedList list = AllowedConnections();
  reply["tracked_rules"] = JsonArray(list.tracked_rules);
  reply["connections"] = JsonArray(list.connections, ConnectionRecordToJson);
  return reply;
}

Json UpdateBlocklists(const Json& /*request*/) REQUIRES(ConfigGuard) {
  StartBlocklistRefresh(Core.CurrentConfig, true);
  return OkReply();
}

Json CheckUpdate(const Json& /*request*/) REQUIRES(ConfigGuard) {
  UpdateWorker(Core.CurrentConfig, true);
  return OkReply();
}

Json InstallUpdate(const Json& request) EXCLUDES(ConfigGuard) {
  const Json& session = request.Get("session");
  std::wstring error;
  const bool started = RequestInstall(session.is_integer() ? session.integer() : -1,
                                      request.Get("lang").StringOr(L""), error);
  return started ? OkReply() : ErrorReply(error);
}

Json ClearAllowed(const Json& /*request*/) {
  ClearAllowedConnections();
  return OkReply();
}

Json ClearLog(const Json& /*request*/) {
  ClearRecentEvents();
  return OkReply();
}

// How the table calls a handler. They are templates so that each call names its handler and the
// thread-safety analysis compares what that one requires with what is held; it can't see through a
// pointer in a table.
template <Handler kHandler>
Json UnderConfigGuard(const Json& request) EXCLUDES(ConfigGuard) {
  GuardLock lock(ConfigGuard);
  return kHandler(request);
}

template <Handler kHandler>
Json Unguarded(const Json& request) EXCLUDES(ConfigGuard) {
  return kHandler(request);
}

struct Command {
  std::string_view name;
  Handler run;
};

constexpr Command kCommands[] = {
    {"status", UnderConfigGuard<Status>},
    {"get_config", UnderConfigGuard<GetConfig>},
    {"set_config", Unguarded<ChangeConfig>},
    {"get_modules", UnderConfigGuard<GetModules>},
    {"set_module", UnderConfigGuard<ChangeModule>},
    {"get_log", Unguarded<GetLog>},
    {"get_allowed", Unguarded<GetAllowed>},
    {"update_blocklists", UnderConfigGuard<UpdateBlocklists>},
    {"check_update", UnderConfigGuard<CheckUpdate>},
    {"install_update", Unguarded<InstallUpdate>},
    {"clear_allowed", Unguarded<ClearAllowed>},
    {"clear_log", Unguarded<ClearLog>},
    {"file_info", Unguarded<FileInfo>},
};

}  // namespace

Json DispatchCommand(const Json& request) {
  if (Core.Stopping) return ErrorReply(L"the service is stopping");
  const Json& name = request.Get("cmd");
  for (const Command& command : kCommands) {
    if (name.text() == command.name) return command.run(request);
  }
  return ErrorReply(L"unknown command: " + name.StringOr(L""));
}

}  // namespace kestrelon

#include "modules/module_client.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "control/frames.h"
#include "control/reply.h"
#include "core/core_state.h"
#include "core/service_log.h"
#include "core/version.h"
#include "modules/module_manifest.h"
#include "modules/request_window.h"
#include "platform/clock.h"

namespace kestrelon {
namespace {

// A longer request ends the connection.
constexpr std::uint32_t kLongestRequestBytes = 16384;
// Of what a module may have put in place of a command, so much is shown.
constexpr std::size_t kLongestShownCommand = 100;

ModuleStatusProvider status_provider GUARDED_BY(ModuleGuard);

// Who a client is: a copy, because the process may be let go of while its connection lasts.
struct ModuleIdentity {
  std::wstring id;
  std::vector<std::wstring> permissions;

  bool Holds(std::wstring_view permission) const {
    return std::ranges::find(permissions, permission) != permissions.end();
  }
};

// The module whose process is at the client's end. False, and the log tells, when there is none.
bool IdentifyClient(const platform::Pipe& pipe, ModuleIdentity& module) {
  std::uint32_t process_id = 0;
  const bool known = platform::PipeClientProcess(pipe, process_id) == platform::kSuccess;
  {
    GuardLock lock(ModuleGuard);
    for (const ModuleProcess& process : ModuleProcesses) {
      if (!known || process.process_id != process_id) continue;
      module = {process.module_id, process.permissions};
      return true;
    }
  }
  LogService(L"Module pipe: process %lu is not a module started by Kestrelon - disconnected",
             process_id);
  return false;
}

// A module's text as part of a line of the log: a line break in it can't forge a line of ours.
std::wstring ShownCommand(const Json& command) {
  std::wstring shown = command.StringOr(L"").substr(0, kLongestShownCommand);
  const auto breaks = [](wchar_t c) {
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029;
  };
  std::ranges::replace_if(shown, breaks, L'?');
  return shown;
}

Json Hello(const ModuleIdentity& module) {
  Json reply = OkReply();
  reply["module"] = module.id;
  reply["permissions"] = JsonArray(module.permissions);
  reply["kestrelon"] = kVersion;
  return reply;
}

Json Status(PipeConnection& client) {
  ModuleStatusProvider provider;
  {
    GuardLock lock(ModuleGuard);
    provider = status_provider;
  }
  if (!provider) return ErrorReply(L"unavailable");
  client.unawaited = true;
  Json reply = provider();
  client.unawaited = false;
  return reply;
}

Json Answer(PipeConnection& client, const ModuleIdentity& module, std::string_view message) {
  Json request;
  if (!Json::Parse(message, request) || !request.IsObject()) return ErrorReply(L"invalid request");
  const Json& command = request.Get("cmd");
  if (command.text() == "hello") return Hello(module);
  if (command.text() == "status" && module.Holds(kPermissionStatusRead)) return Status(client);
  LogService(L"Module %s asked for \"%s\" without permission - refused", module.id,
             ShownCommand(command));
  return ErrorReply(L"not permitted");
}

// Reads and answers one request. False when the connection is to end.
bool ServeRequest(PipeConnection& client, const ModuleIdentity& module, RequestWindow& window) {
  std::array<char, kLongestRequestBytes> bytes;
  std::uint32_t size = 0;
  if (platform::ReadPipe(client.pipe, bytes.data(), kLongestRequestBytes, size)) return false;
  if (!window.Admit(platform::TickMilliseconds())) {
    LogService(L"Module %s: too many requests - disconnected", module.id);
    return false;
  }
  const Json reply = Answer(client, module, {bytes.data(), size});
  return !*client.PipeStop && WriteFrame(client.pipe, reply.Dump(false));
}

}  // namespace

void SetModuleStatusProvider(ModuleStatusProvider provider) {
  GuardLock lock(ModuleGuard);
  status_provider = std::move(provider);
}

void ModuleClient(PipeConnection& client) {
  ModuleIdentity module;
  if (!IdentifyClient(client.pipe, module)) return;
  RequestWindow window(platform::TickMilliseconds());
  while (!*client.PipeStop && ServeRequest(client, module, window)) {
  }
}

}  // namespace kestrelon

// Any text as a client's request to a running service: one reply, which says whether it was done or
// in a sentence why not, and a configuration that is in force as it is stored.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "config/config_file.h"
#include "control/dispatch.h"
#include "core/core_loop.h"
#include "core/core_start.h"
#include "core/core_state.h"
#include "simulation/machine/machine.h"
#include "tests/fuzz/property.h"

namespace kestrelon {
namespace {

constexpr const wchar_t* kConfigFile = L"C:\\ProgramData\\Kestrelon\\config.json";

Json Ask(std::string_view command) {
  Json request;
  request["cmd"] = Json(std::string(command));
  return DispatchCommand(request);
}

void CheckReply(const Json& reply) {
  PROPERTY(reply.IsObject() && reply.KeyAt(0) == "ok");
  PROPERTY(reply.Get("ok").boolean() != reply.Has("error"));
  PROPERTY(!reply.Has("error") || !reply.Get("error").text().empty());
  Json parsed;
  PROPERTY(Json::Parse(reply.Dump(false), parsed) && parsed.Dump(false) == reply.Dump(false));
}

// What was accepted is in force, and the next start would read the same.
void CheckConfig() {
  const Json status = Ask("status");
  PROPERTY(status.Get("last_error").text().empty() && !status.Has("fallback"));
  PROPERTY(status.Get("filters").integer() > 0 || !status.Get("enabled").boolean());
  Config stored;
  std::wstring error;
  PROPERTY(LoadConfigFile(kConfigFile, stored, error));
  PROPERTY(ConfigToJson(stored).Dump(true) == Ask("get_config").Get("config").Dump(true));
}

void Check(std::string_view text) {
  Json request;
  if (!Json::Parse(text, request) || !request.IsObject()) return;
  CheckReply(DispatchCommand(request));
  LoopPass();
  CheckConfig();
}

}  // namespace
}  // namespace kestrelon

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
  PROPERTY(kestrelon::CoreStart());
  // Before the ends of static objects: no thread of the service may outlive what it works on.
  return std::atexit([] { kestrelon::CoreStop(); });
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrelon::Check({reinterpret_cast<const char*>(data), size});
  return 0;
}

#include "control/dispatch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "base/text.h"
#include "config/config_file.h"
#include "core/config_change.h"
#include "filtering/filter_engine.h"
#include "identity/file_watch.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

class Dispatch : public testing::Test {
 protected:
  Dispatch() {
    machine.files.MakeDirectories(L"C:\\ProgramData\\Kestrelon");
    machine.files.Write(L"C:\\App\\plain.exe", "unsigned");
    machine.files.Write(L"C:\\App\\signed.exe", "signed");
    machine.files.Sign(L"C:\\App\\signed.exe", L"Gr\u00fc\u00dfe AG");
    std::wstring error;
    EXPECT_TRUE(FirstApply(Permitting(L"198.51.100.1"), error)) << Utf8FromWide(error);
  }
  ~Dispatch() override {
    SyncFileWatch({}, nullptr);
    CloseEngine(TheEngine);
  }

  static Config Permitting(const wchar_t* remote) {
    Config config;
    RuleEntry rule;
    rule.name = L"friend";
    rule.remote = remote;
    config.rules = {rule};
    return config;
  }

  // The reply to a request, both as compact texts.
  static std::string Ask(const std::string& request) {
    Json parsed;
    EXPECT_TRUE(Json::Parse(request, parsed)) << request;
    return DispatchCommand(parsed).Dump(false);
  }

  static std::string Set(const Config& config) {
    return Ask(R"({"cmd":"set_config","config":)" + Text(config) + "}");
  }

  static std::string Text(const Config& config) { return ConfigToJson(config).Dump(false); }

  // As the pipe tells it.
  static std::string Live() {
    const std::string reply = Ask(R"({"cmd":"get_config"})");
    const std::string head = R"({"ok":true,"config":)";
    EXPECT_TRUE(reply.starts_with(head)) << reply;
    return reply.substr(head.size(), reply.size() - head.size() - 1);
  }

  simulation::Machine& machine = simulation::TheMachine();
};

TEST_F(Dispatch, AnswersRequestsThatItCannotServeByTheirWords) {
  const struct {
    const char* request;
    const char* error;
  } cases[] = {
      {R"({"cmd":"gr\u00fc\u00dfe"})",
       "unknown command: gr\xC3\xBC\xC3\x9F"
       "e"},
      {R"({"cmd":"file_info"})", "missing path"},
      {R"({"cmd":"file_info","path":""})", "missing path"},
      {R"({"cmd":"file_info","path":7})", "missing path"},
      {R"({"cmd":"set_config"})", "Invalid configuration: configuration is not a JSON object"},
      {R"({"cmd":"set_config","config":{"enabled":1}})",
       "Invalid configuration: 'enabled' must be true or false"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Ask(c.request), std::string(R"({"ok":false,"error":")") + c.error + "\"}")
        << c.request;
  }
  Core.Stopping = true;
  for (const char* request : {R"({"cmd":"status"})", R"({"cmd":"no such"})"}) {
    EXPECT_EQ(Ask(request), R"({"ok":false,"error":"the service is stopping"})");
  }
}

TEST_F(Dispatch, FileInfoTellsWhatAFileOrTheProgramOfAServiceIs) {
  const std::string windows =
      R"({"ok":true,"exists":true,"signed":true,"signer":"Microsoft Windows"})";
  const std::string absent = R"({"ok":true,"exists":false,"signed":false,"signer":""})";
  const struct {
    const wchar_t* path;
    std::string reply;
  } cases[] = {
      {L"C:\\App\\plain.exe", R"({"ok":true,"exists":true,"signed":false,"signer":""})"},
      {L"c:\\app\\SIGNED.exe",
       "{\"ok\":true,\"exists\":true,\"signed\":true,\"signer\":\"Gr\xC3\xBC\xC3\x9F"
       "e AG\"}"},
      {L"C:\\App\\missing.exe", absent},
      {L"System", windows},
      {L"service:Dnscache", windows},
      {L"service:nosuch", absent},
      {L"service:", absent},
  };
  for (const auto& c : cases) {
    Json request;
    request["cmd"] = "file_info";
    request["path"] = c.path;
    EXPECT_EQ(DispatchCommand(request).Dump(false), c.reply) << Utf8FromWide(c.path);
  }
}

TEST_F(Dispatch, SetConfigLeavesTheModulesAsTheyWere) {
  const ModuleEntry approved{L"net", true, L"1.0", L"grant", 1};
  {
    GuardLock lock(ConfigGuard);
    Core.CurrentConfig.modules = {approved};
  }
  Config changed = Permitting(L"198.51.100.2");
  changed.modules = {{L"net", false, L"1.0", L"grant", 1}, {L"foreign", true, L"1.0", L"", 1}};
  EXPECT_TRUE(Set(changed).starts_with(R"({"ok":true,)"));
  changed.modules = {approved};
  EXPECT_EQ(Live(), Text(changed));
}

// What the core does under its guard may take long: reading a large document must not, and need
// not, wait for it.
TEST_F(Dispatch, DocumentsAndFilesAreLookedAtWithoutTheCoresGuard) {
  for (const char* request :
       {R"({"cmd":"set_config"})", R"({"cmd":"file_info","path":"C:\\App\\signed.exe"})"}) {
    std::future<std::string> reply;
    GuardLock lock(ConfigGuard);
    reply = std::async(std::launch::async, Ask, request);
    EXPECT_EQ(reply.wait_for(std::chrono::seconds(30)), std::future_status::ready) << request;
  }
}

}  // namespace
}  // namespace kestrelon

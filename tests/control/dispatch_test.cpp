#include "control/dispatch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

// What the core does under its guard may take long: reading a large document must not, and need
// not, wait for it.
TEST(Dispatch, DocumentsAndFilesAreLookedAtWithoutTheCoresGuard) {
  simulation::TheMachine().files.Write(L"C:\\App\\signed.exe", "signed");
  simulation::TheMachine().files.Sign(L"C:\\App\\signed.exe", L"Gr\u00fc\u00dfe AG");
  const std::pair<const char*, const char*> requests[] = {
      {R"({"cmd":"set_config"})",
       R"({"ok":false,"error":"Invalid configuration: configuration is not a JSON object"})"},
      {R"({"cmd":"file_info","path":"c:\\app\\SIGNED.exe"})",
       "{\"ok\":true,\"exists\":true,\"signed\":true,\"signer\":\"Gr\xC3\xBC\xC3\x9F"
       "e AG\"}"}};
  for (const auto& [request, reply] : requests) {
    std::future<std::string> answer;
    GuardLock lock(ConfigGuard);
    answer = std::async(std::launch::async, [&request = request] {
      Json parsed;
      EXPECT_TRUE(Json::Parse(request, parsed));
      return DispatchCommand(parsed).Dump(false);
    });
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(30)), std::future_status::ready) << request;
    EXPECT_EQ(answer.get(), reply);
  }
}

}  // namespace
}  // namespace kestrelon

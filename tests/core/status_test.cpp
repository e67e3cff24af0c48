#include "core/status.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "core/config_change.h"
#include "filtering/filter_engine.h"
#include "identity/file_watch.h"
#include "modules/module_processes.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

std::string Status() {
  GuardLock lock(ConfigGuard);
  Json reply;
  reply["left"] = "over";
  BuildStatus(reply);
  return reply.Dump(false);
}

TEST(Status, TellsTheFallbackAndCountersOfAnySize) {
  {
    GuardLock lock(ConfigGuard);
    Core.CurrentConfig.enabled = false;
    Core.BootInstalled = true;
    Core.LastError = L"failed";
    Core.FallbackKind = L"restored";
    Core.FallbackCause = L"corrupt";
    Core.FallbackFrom = L"lastgood";
  }
  Core.NetEvents = std::uint64_t{1} << 63;
  Core.NetDrops = (std::uint64_t{1} << 63) - 1;
  {
    GuardLock lock(ModuleGuard);
    ModuleProcesses.resize(2);
  }
  const std::string status = Status();
  for (const char* part :
       {R"("enabled":false,"filters":0,"boot_filter":true,"last_error":"failed","blocklists":)",
        R"("fallback":"restored","fallback_cause":"corrupt","fallback_from":"lastgood",)"
        R"("net_events":9.2233720368547758e+18,"net_drops":9223372036854775807,"warnings":)",
        R"("changed_apps":[],"modules_running":2})"}) {
    EXPECT_NE(status.find(part), std::string::npos) << status;
  }

  // A strict configuration comes from nowhere.
  GuardLock lock(ConfigGuard);
  Core.FallbackFrom.clear();
  EXPECT_NE(Status().find(R"("fallback_cause":"corrupt","net_events")"), std::string::npos);
}

TEST(Status, TellsWhatTheLastApplicationFound) {
  simulation::Machine& machine = simulation::TheMachine();
  machine.files.MakeDirectories(L"C:\\ProgramData\\Kestrelon");
  machine.files.Write(L"C:\\App\\changed.exe", "other content than was allowed");
  Config config;
  config.boot_time_filter = false;  // those are no part of the count
  config.apps.resize(2);
  config.apps[0].path = L"C:\\App\\changed.exe";
  config.apps[0].sha256 = {std::wstring(64, L'0')};
  config.apps[1].path = L"service:nosuch";
  std::wstring error;
  ASSERT_TRUE(FirstApply(config, error)) << Utf8FromWide(error);
  const std::string status = Status();
  const std::string filters = std::to_string(machine.engine.Filters().size());
  EXPECT_NE(status.find("\"filters\":" + filters + ","), std::string::npos) << status;
  EXPECT_NE(status.find(R"("Service not found (rule inactive): nosuch"],)"
                        R"("changed_apps":["C:\\App\\changed.exe"],)"),
            std::string::npos)
      << status;
  SyncFileWatch({}, nullptr);
  CloseEngine(TheEngine);
}

}  // namespace
}  // namespace kestrelon

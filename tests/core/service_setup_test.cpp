#include "core/service_setup.h"

#include <gtest/gtest.h>

#include "base/format.h"
#include "base/text.h"
#include "config/config_file.h"
#include "config/config_store.h"
#include "core/command_line.h"
#include "core/core_start.h"
#include "platform/services.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

using simulation::Service;

constexpr const wchar_t* kName = L"KestrelonSvc";
constexpr const wchar_t* kInstalled = L"Kestrelon service installed and running.\n";
constexpr const wchar_t* kNotYetRunning = L"Kestrelon service installed (not yet running).\n";
constexpr const wchar_t* kUninstalled =
    L"Kestrelon service and all of its filters were removed (0 Windows Defender Firewall "
    L"exception(s)).\n";
constexpr const wchar_t* kProtectionOff =
    L"Protection is OFF: all Kestrelon filters were removed. Turn it back on in the Kestrelon "
    L"app.\n";

// A machine with the product's files. Service and commands are one process here, so both have the
// standing of the service.
class ServiceSetup : public testing::Test {
 protected:
  ServiceSetup() { machine_.files.Write(machine_.environment.executable, "MZ"); }

  void TearDown() override {
    EXPECT_EQ(machine_.services.open_handles(), 0U);
    EXPECT_EQ(machine_.files.open_handles(), 0U);
    EXPECT_EQ(machine_.engine.open_sessions(), 0U);
  }

  int Run(const wchar_t* command) {
    machine_.console.output.Clear();
    machine_.console.error_output.Clear();
    return RunCommandLine({command});
  }

  // What a run of the service leaves behind, with the default configuration.
  void LeaveFilters() {
    machine_.files.Remove(ConfigPath());
    machine_.registry.SetDword(L"SOFTWARE\\Kestrelon", L"ConfigCreated", 0);
    ASSERT_TRUE(CoreStart());
    CoreStop();
    ASSERT_TRUE(Blocks());
  }

  // The service as an older version may have registered it.
  void PutService(std::uint32_t state = 4, std::uint64_t start_ms = 0, std::uint64_t stop_ms = 0) {
    machine_.services.Add({.name = kName,
                           .display_name = L"Older",
                           .binary_path = L"\"" + machine_.environment.executable + L"\"",
                           .state = state,
                           .start = 3,
                           .start_ms = start_ms,
                           .stop_ms = stop_ms});
  }

  bool Blocks() {
    simulation::Connection connection;
    connection.app_id = Utf16BytesWithNull(L"\\device\\harddiskvolume3\\tools\\tool.exe");
    connection.remote_v4 = 0xCB007109;
    connection.remote_port = 443;
    return !machine_.engine.Classify(connection).permit;
  }

  // What only the service's manager can show of the record.
  void ExpectRecord() {
    const std::optional<Service> service = machine_.services.Find(kName);
    ASSERT_TRUE(service);
    EXPECT_EQ(service->type, 16U);
    EXPECT_EQ(service->error_control, 1U);
    EXPECT_EQ(service->failure_actions.reset_period_s, 86400U);
    EXPECT_EQ(service->failure_actions.restart_delays_ms,
              (std::vector<std::uint32_t>{1000, 2000, 5000}));
    EXPECT_TRUE(service->fails_on_error_exit);
  }

  void ExpectOffOnDisk(const std::wstring& path) {
    Config config;
    std::wstring error;
    ASSERT_TRUE(LoadConfigFile(path, config, error)) << Utf8FromWide(error);
    EXPECT_FALSE(config.enabled);
    EXPECT_FALSE(config.rules.empty());  // all else is the user's still
  }

  std::wstring Output() { return machine_.console.output.text(); }
  std::wstring Errors() { return machine_.console.error_output.text(); }

  const std::wstring last_good_ = ConfigPath() + L".lastgood";
  simulation::Machine& machine_ = simulation::TheMachine();
};

TEST_F(ServiceSetup, ServicesAreWaitedForByTheClock) {
  const std::uint64_t never = simulation::ServiceTable::kNever;
  const struct {
    const wchar_t* command;
    std::uint64_t start_ms;
    std::uint64_t stop_ms;
    int exit_code;
    const wchar_t* output;
    std::uint64_t waited_ms;
    bool left;  // in the manager's table
  } cases[] = {{L"--install", 0, 0, 0, kInstalled, 0, true},
               {L"--install", 1, 0, 0, kInstalled, 250, true},
               {L"--install", 60000, 0, 0, kInstalled, 60000, true},
               {L"--install", 60001, 0, 2, kNotYetRunning, 60000, true},
               {L"--install", never, 0, 2, kNotYetRunning, 60000, true},
               {L"--uninstall", 0, 30000, 0, kUninstalled, 30000, false},
               {L"--uninstall", 0, never, 0, kUninstalled, 30000, true},
               {L"--remove-filters", never, never, 0, kProtectionOff, 30000, true}};
  LeaveFilters();
  for (const auto& c : cases) {
    SCOPED_TRACE(Utf8FromWide(c.command));
    PutService(c.stop_ms == 0 ? 1 : 4, c.start_ms, c.stop_ms);
    const std::uint64_t begin = machine_.clock.Tick();
    EXPECT_EQ(Run(c.command), c.exit_code);
    EXPECT_EQ(Output(), c.output);
    EXPECT_EQ(machine_.clock.Tick() - begin, c.waited_ms);
    EXPECT_EQ(machine_.services.Exists(kName), c.left);
    if (c.command == std::wstring(L"--install")) ExpectRecord();
  }
}

TEST_F(ServiceSetup, EachFailingCallOfTheManagerHasItsConsequence) {
  const platform::Code denied = platform::kAccessDenied;
  const std::wstring warning =
      L"Warning: could not stop/delete the service: 0x00000005 - Access is denied.\n";
  const auto failed = [](const wchar_t* call) {
    return Format(L"%s failed: 0x00000005 - Access is denied.\n", call);
  };
  const struct {
    const wchar_t* command;
    const char* call;
    platform::Code code;
    std::uint32_t state_before;  // 0: not installed
    int exit_code;
    std::wstring errors;
  } cases[] = {
      {L"--install", "OpenServiceManager", denied, 0, 1, failed(L"OpenSCManager")},
      {L"--install", "RegisterService", denied, 0, 1, failed(L"CreateService")},
      {L"--install", "OpenServiceByName", denied, 1, 1, failed(L"ChangeServiceConfig")},
      {L"--install", "UpdateService", denied, 1, 1, failed(L"ChangeServiceConfig")},
      {L"--install", "DescribeService", denied, 0, 0, L""},
      {L"--install", "SetServiceFailureActions", denied, 0, 0, L""},
      {L"--install", "SetServiceFailureFlag", denied, 0, 0, L""},
      {L"--install", "LaunchService", denied, 0, 1, failed(L"StartService")},
      {L"--uninstall", "OpenServiceManager", denied, 4, 0, warning},
      {L"--uninstall", "OpenServiceByName", denied, 4, 0, warning},
      {L"--uninstall", "RequestServiceStop", denied, 4, 0, L""},
      {L"--uninstall", "QueryServiceState", denied, 4, 0, L""},
      {L"--uninstall", "UnregisterService", denied, 4, 0, warning},
      {L"--uninstall", "UnregisterService", platform::kServiceMarkedForDelete, 4, 0, L""},
      {L"--remove-filters", "OpenServiceManager", denied, 4, 0, L""},
      {L"--remove-filters", "OpenServiceByName", denied, 4, 0, L""},
      {L"--remove-filters", "RequestServiceStop", denied, 4, 0, L""},
      {L"--remove-filters", "LaunchService", denied, 4, 0, L""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(Utf8FromWide(c.command) + " " + c.call);
    LeaveFilters();
    machine_.services.Remove(kName);
    if (c.state_before != 0) PutService(c.state_before);
    machine_.faults.FailOnce(c.call, c.code);
    EXPECT_EQ(Run(c.command), c.exit_code);
    EXPECT_EQ(machine_.faults.fired_name(), c.call);
    EXPECT_EQ(Errors(), c.errors);
    EXPECT_EQ(Output().empty(), c.exit_code != 0);
    EXPECT_EQ(Blocks(), c.command == std::wstring(L"--install"));
  }
}

// Protection is off in both files, so that a service that comes up again leaves it off. What can't
// be written costs no more than a warning.
TEST_F(ServiceSetup, RemovingFiltersComesBeforeTheConfigurationAndItsLastWorkingCopy) {
  for (const bool full : {true, false}) {
    LeaveFilters();
    const std::optional<std::string> before = machine_.files.Read(ConfigPath());
    machine_.files.SetFull(full);
    machine_.files.HoldOpen(last_good_);
    EXPECT_EQ(Run(L"--remove-filters"), 0);
    EXPECT_EQ(Output(), kProtectionOff);
    EXPECT_FALSE(Blocks());
    EXPECT_EQ(Errors().starts_with(L"Warning: could not update config.json: "), full);
    EXPECT_EQ(machine_.files.Read(ConfigPath()) == before, full);
    machine_.files.LetGo(last_good_);
    machine_.files.SetFull(false);
  }
  ExpectOffOnDisk(ConfigPath());
  const std::string log = *machine_.files.Read(L"C:\\ProgramData\\Kestrelon\\service.log");
  EXPECT_NE(log.find("Cannot save the last working configuration: "), std::string::npos);
  EXPECT_EQ(Run(L"--remove-filters"), 0);
  ExpectOffOnDisk(last_good_);
}

TEST_F(ServiceSetup, UninstallingTakesExceptionsAwayThatAreOurs) {
  for (const wchar_t* group : {L"Kestrelon", L"Others", L"Kestrelon"}) {
    platform::FirewallRuleValues rule;
    rule.name = rule.grouping = group;
    machine_.windows_firewall.Add(rule);
  }
  EXPECT_EQ(Run(L"--uninstall"), 0);
  EXPECT_EQ(Output(),
            L"Kestrelon service and all of its filters were removed (2 Windows Defender Firewall "
            L"exception(s)).\n");
  const std::vector<platform::FirewallRuleValues> left = machine_.windows_firewall.Rules();
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(left[0].name, L"Others");
}

TEST_F(ServiceSetup, FiltersThatCannotBeRemovedAreToldOf) {
  LeaveFilters();
  machine_.engine.Stop();
  EXPECT_EQ(Run(L"--uninstall"), 1);
  EXPECT_TRUE(Errors().starts_with(
      L"Removing filters failed: 0x00000000 - The operation completed successfully.\n"
      L"FwpmEngineOpen0: 0x000006D9"));
  EXPECT_EQ(Run(L"--remove-filters"), 1);
  EXPECT_TRUE(Errors().starts_with(L"Removing filters failed: FwpmEngineOpen0: 0x000006D9"));
  EXPECT_EQ(Output(), L"");
  EXPECT_TRUE(Blocks());  // the platform goes on enforcing
}

// It refuses until it runs, and would then put back what was taken away.
TEST_F(ServiceSetup, AStartingServiceIsAskedToStopUntilItDoes) {
  PutService(1, 5000);
  {
    platform::ServiceHandle manager;
    platform::ServiceHandle service;
    ASSERT_EQ(platform::OpenServiceManager(platform::kManagerConnect, manager), 0U);
    ASSERT_EQ(platform::OpenServiceByName(manager, kName, platform::kServiceStart, service), 0U);
    ASSERT_EQ(platform::LaunchService(service), 0U);
  }
  EXPECT_EQ(Run(L"--uninstall"), 0);
  EXPECT_FALSE(machine_.services.Exists(kName));
}

}  // namespace
}  // namespace kestrelon

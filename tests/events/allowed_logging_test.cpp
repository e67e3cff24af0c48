#include "events/allowed_logging.h"

#include "base/format.h"
#include "events/allowed_connections.h"
#include "tests/events/event_world.h"

namespace kestrelon {
namespace {

RuleEntry Downloads() {
  RuleEntry rule = Rule(true);
  rule.name = L"windows downloads for the signed-in USER";
  rule.remote_ports = L"80";
  return rule;
}

// Everything is allowed, by the rule of the downloads to port 80.
class AllowedLogging : public EventWorld {
 protected:
  AllowedLogging() {
    RuleEntry rule = Rule(true);
    rule.remote_ports = L"81-65535";
    Install({Downloads(), rule}, {});
  }

  void Refresh(bool log_allowed, const std::vector<std::wstring>& apps,
               const std::vector<RuleEntry>& rules) {
    Config config;
    config.log_allowed = log_allowed;
    config.log_allowed_apps = apps;
    config.rules = rules;
    GuardLock lock(ConfigGuard);
    RefreshAllowedSelection(config);
  }
  // What is recorded of the connection.
  std::wstring Told(const simulation::Connection& connection) {
    ClearAllowedConnections();
    Connect(connection);
    std::wstring told;
    for (const ConnectionRecord& record : AllowedConnections().connections) {
      EXPECT_EQ(record.first, machine_.clock.SystemTime());
      told += Format(L"%s %s %u %u %s:%u %s", record.app, record.package_sid, record.direction,
                     record.protocol, record.remote_addr, record.remote_port, record.rule);
    }
    return told;
  }
};

TEST_F(AllowedLogging, RecordsWhatTheEngineReports) {
  Start();
  Refresh(true, {}, {});
  simulation::Connection out = AppConnection(platform::kLayerConnectV6);
  out.remote_port = 80;
  out.package_sid = SidOf(L"S-1-15-2-1");
  EXPECT_EQ(Told(out), std::wstring(kApp) + L" S-1-15-2-1 0 6 2001:db8::7:80 " + Downloads().name);
  simulation::Connection in = AppConnection(platform::kLayerRecvAcceptV4);
  in.package_sid = SidOf(L"S-1-5-21-1");
  EXPECT_EQ(Told(in), std::wstring(kApp) + L"  1 6 198.51.100.7:50000 allow");
  in.flags = platform::kConditionFlagLoopback;
  EXPECT_EQ(Told(in), L"");
}

TEST_F(AllowedLogging, ListedApplicationsAreResolved) {
  Start();
  const std::wstring device = L"\\device\\harddiskvolume3";
  simulation::Connection service = AppConnection();
  service.app_id = DeviceAppId(device + L"\\windows\\system32\\svchost.exe");
  simulation::Connection package = AppConnection();
  package.app_id = DeviceAppId(device + L"\\app\\other.exe");
  std::wstring package_sid;
  ASSERT_EQ(platform::SidOfPackage(L"Vendor.Package_1", package_sid), platform::kSuccess);
  package.package_sid = SidOf(package_sid);
  const struct {
    std::vector<std::wstring> apps;
    bool program, service, package;  // which of the connections is recorded
  } rows[] = {
      {{}, true, true, true},
      {{L"%SystemDrive%\\APP\\app.exe"}, true, false, false},
      {{L"C:\\App\\a*.exe", L"service:NoSuchService"}, true, false, false},
      {{L"C:\\App\\nothing*.exe", L"service:NoSuchService"}, false, false, false},
      {{L"service:dhcp"}, false, true, false},
      {{L"package:Vendor.Package_1"}, false, false, true},
  };
  for (const auto& row : rows) {
    Refresh(true, row.apps, {});
    EXPECT_EQ(!Told(AppConnection()).empty(), row.program);
    EXPECT_EQ(!Told(service).empty(), row.service);
    EXPECT_EQ(!Told(package).empty(), row.package);
  }
}

TEST_F(AllowedLogging, RuleIsTrackedWhileItIsOnAndAllows) {
  std::vector<RuleEntry> rules = {Downloads(), Downloads(), Rule(true)};
  rules[0].enabled = false;
  rules[1].allow = false;
  Refresh(false, {}, rules);
  EXPECT_TRUE(AllowedConnections().tracked_rules.empty());
}

TEST_F(AllowedLogging, RefusedChangeIsNotTriedAgain) {
  Refresh(true, {}, {});  // without a subscription there is nothing to change
  Start();
  machine_.faults.FailOnce("SetOption", platform::kAccessDenied);
  Refresh(true, {}, {});
  Refresh(true, {}, {});
  EXPECT_EQ(LogCount("Allowed-connection logging on"), 1u);
  EXPECT_EQ(LogCount("Allowed-connection logging on failed: 0x00000005"), 1u);
}

}  // namespace
}  // namespace kestrelon

#include "tests/scenario/world.h"

#include <algorithm>

#include "base/format.h"
#include "base/text.h"
#include "config/config_file.h"
#include "config/config_store.h"
#include "core/config_change.h"
#include "core/core_loop.h"
#include "core/core_start.h"
#include "filtering/filter_engine.h"
#include "platform/network.h"
#include "platform/security.h"
#include "platform/system_text.h"
#include "simulation/machine/digest.h"

namespace kestrelon::test {
namespace {

// The id under which the engine knows a program: its device path in lower case.
platform::Bytes AppIdOf(const std::wstring& program) {
  if (program == L"System") return Utf16BytesWithNull(program);
  const std::wstring device = L"\\Device\\HarddiskVolume3" + program.substr(2);
  return Utf16BytesWithNull(platform::LowerCase(device));
}

Guid LayerOf(const Attempt& attempt) {
  if (attempt.inbound) {
    return attempt.family == 4 ? platform::kLayerRecvAcceptV4 : platform::kLayerRecvAcceptV6;
  }
  return attempt.family == 4 ? platform::kLayerConnectV4 : platform::kLayerConnectV6;
}

platform::Sid SidOf(const std::wstring& text) {
  platform::Sid sid;
  EXPECT_EQ(platform::SidFromText(text, sid), platform::kSuccess);
  return sid;
}

Attempt MakeAttempt(const std::wstring& program, const std::wstring& remote) {
  Attempt attempt;
  attempt.program = program;
  attempt.remote = remote;
  attempt.family = remote.find(L':') == std::wstring::npos ? 4 : 6;
  return attempt;
}

}  // namespace

simulation::Connection ConnectionOf(const Attempt& attempt) {
  simulation::Connection connection;
  connection.layer = LayerOf(attempt);
  connection.app_id = AppIdOf(attempt.program);
  connection.protocol = attempt.protocol;
  connection.remote_port = attempt.remote_port;
  connection.local_port = attempt.local_port;
  connection.flags = attempt.loopback ? platform::kConditionFlagLoopback : 0;
  const bool read = attempt.family == 4
                        ? platform::Ipv4FromText(attempt.remote, connection.remote_v4)
                        : platform::Ipv6FromText(attempt.remote, connection.remote_v6);
  EXPECT_TRUE(read) << Utf8FromWide(attempt.remote);
  connection.user_sids.push_back(SidOf(L"S-1-1-0"));
  for (const std::wstring& user : attempt.users) connection.user_sids.push_back(SidOf(user));
  if (!attempt.package_sid.empty()) connection.package_sid = SidOf(attempt.package_sid);
  return connection;
}

World::World() {
  Program(kTool, "tool, first version");
  Program(kOther, "another program");
  Signed(kBrowser, "browser, first version", kPublisher);
  Signed(kSvchost, "service host", L"Microsoft Windows");
  Signed(kLsass, "security authority", L"Microsoft Windows");
  facts_.services[L"dnscache"] = kSvchost;
  facts_.service_sids[L"dnscache"] =
      L"S-1-5-80-859482183-879914841-863379149-1145462774-2388618682";
  facts_.dns_servers = L"192.0.2.53";
}

void World::PutConfig(const Config& config) {
  machine().files.Write(kConfigFile, ConfigText(config));
  machine().registry.SetDword(L"SOFTWARE\\Kestrelon", L"ConfigCreated", 1);
}

Config World::ConfigOnDisk(const std::wstring& path) {
  Config config;
  std::wstring error;
  EXPECT_TRUE(LoadConfigFile(path, config, error)) << Utf8FromWide(error);
  return config;
}

bool World::Start() {
  Core.Stopping = false;
  Core.StopEvent.Clear();
  started_ = CoreStart();
  return started_;
}

bool World::StartWith(const Config& config) {
  PutConfig(config);
  return Start();
}

void World::Stop() {
  if (loop_.joinable()) {
    Core.StopEvent.Set();
    loop_.join();
    machine().clock.Hold();
  }
  if (started_) CoreStop();
  started_ = false;
}

void World::RunLoop() {
  machine().clock.Run();
  loop_ = std::thread(&CoreLoop);
}

void World::Restart() {
  Stop();
  machine().Restart();
  GuardLock lock(ConfigGuard);
  Core.LastError.clear();
  Core.FallbackKind.clear();
  Core.FallbackCause.clear();
  Core.FallbackFrom.clear();
  Core.BootInstalled = false;
  Core.BootRetryAt = 0;
  Core.BootRetryStep = 0;
  Core.StartTick = machine().clock.Tick();
  Core.LastHealthTick = 0;
}

Json World::Set(const Config& config) {
  GuardLock lock(ConfigGuard);
  Json reply;
  SetConfig(reply, config);
  return reply;
}

void World::Program(const std::wstring& path, const std::string& content) {
  machine().files.Write(path, content);
  facts_.files[platform::LowerCase(path)] = KnownFile{L"", HashText(content)};
}

void World::Signed(const std::wstring& path, const std::string& content,
                   const std::wstring& signer) {
  machine().files.Write(path, content);
  machine().files.Sign(path, signer);
  facts_.files[platform::LowerCase(path)] = KnownFile{signer, HashText(content)};
}

void World::InstallBlocklist(const std::wstring& networks) {
  machine().files.Write(L"C:\\Program Files\\Kestrelon\\blocklists\\drop_v4.json",
                        Utf8FromWide(networks));
  facts_.listed_networks = networks;
}

void World::InstallModule(const std::string& manifest, const std::wstring& grant) {
  test::InstallModule(manifest);
  facts_.files[platform::LowerCase(kModuleFile)] =
      KnownFile{kModulePublisher, HashText(kModuleContent)};
  facts_.module_file = kModuleFile;
  facts_.module_grant = grant;
}

void World::ReplaceModule() {
  Program(kModuleFile, "not what was shipped");
  facts_.module_grant.clear();
}

bool World::Passes(const Attempt& attempt) {
  return machine().engine.Judge(ConnectionOf(attempt)).permit;
}

bool World::Connects(const Attempt& attempt) {
  const bool passes = machine().engine.Classify(ConnectionOf(attempt)).permit;
  machine().engine.WaitForNotifications();
  return passes;
}

bool World::Reaches(const std::wstring& program) {
  return Passes(Out(program, L"203.0.113.5", 443));
}

std::wstring World::Explain(const Attempt& attempt) {
  const simulation::Verdict verdict = machine().engine.Judge(ConnectionOf(attempt));
  return Format(L"%s %s %s protocol %d remote port %d local port %d%s: %s by '%s'", attempt.program,
                attempt.inbound ? L"from" : L"to", attempt.remote,
                static_cast<int>(attempt.protocol), static_cast<int>(attempt.remote_port),
                static_cast<int>(attempt.local_port), attempt.loopback ? L" on loopback" : L"",
                verdict.permit ? L"passes" : L"blocked",
                verdict.filter ? verdict.filter->name : L"no filter");
}

std::wstring World::Log() {
  return WideFromUtf8(
      machine().files.Read(L"C:\\ProgramData\\Kestrelon\\service.log").value_or(""));
}

bool World::Logged(const std::wstring& part) {
  return Log().find(part) != std::wstring::npos;
}

std::wstring World::LastError() {
  GuardLock lock(ConfigGuard);
  return Core.LastError;
}

std::vector<Guid> World::FilterKeys() {
  std::vector<Guid> keys;
  for (const auto& filter : machine().engine.Filters()) {
    if ((filter->flags & platform::kFilterBootTime) == 0) keys.push_back(filter->key);
  }
  std::sort(keys.begin(), keys.end());
  return keys;
}

void World::ExpectNothingLeft() {
  EXPECT_EQ(machine().files.open_handles(), 0U);
  EXPECT_EQ(machine().services.open_handles(), 0U);
  EXPECT_EQ(machine().pipes.open_handles(), 0U);
  EXPECT_EQ(machine().watches.open_watches(), 0U);
  EXPECT_EQ(machine().network.notifications(), 0U);
  EXPECT_EQ(machine().http.open_handles(), 0U);
  EXPECT_EQ(machine().processes.open_handles(), 0U);
  EXPECT_EQ(machine().sessions.open_handles(), 0U);
  EXPECT_EQ(machine().windows_firewall.open_handles(), 0U);
  EXPECT_EQ(machine().engine.open_sessions(), 0U);
  EXPECT_FALSE(machine().engine.transaction_open());
  EXPECT_EQ(machine().engine.TiedConflicts(), 0U);
}

Attempt Out(const std::wstring& program, const std::wstring& remote, std::uint16_t remote_port) {
  Attempt attempt = MakeAttempt(program, remote);
  attempt.remote_port = remote_port;
  attempt.local_port = 50000;
  return attempt;
}

Attempt In(const std::wstring& program, const std::wstring& remote, std::uint16_t local_port) {
  Attempt attempt = MakeAttempt(program, remote);
  attempt.inbound = true;
  attempt.remote_port = 50000;
  attempt.local_port = local_port;
  return attempt;
}

Attempt Udp(Attempt attempt) {
  attempt.protocol = 17;
  return attempt;
}

Attempt Loopback(Attempt attempt) {
  attempt.loopback = true;
  return attempt;
}

AppEntry Allowed(const std::wstring& path) {
  AppEntry app;
  app.path = path;
  return app;
}

AppEntry Blocked(const std::wstring& path) {
  AppEntry app = Allowed(path);
  app.allow = false;
  return app;
}

Config ConfigOf(const std::vector<AppEntry>& apps) {
  Config config;
  config.presets_version = 9;
  config.updates_auto_check = false;
  config.apps = apps;
  return config;
}

RuleEntry AllowRule(const std::wstring& name) {
  RuleEntry rule;
  rule.name = name;
  rule.direction = kDirectionBoth;
  return rule;
}

RuleEntry BlockRule(const std::wstring& name) {
  RuleEntry rule = AllowRule(name);
  rule.allow = false;
  return rule;
}

std::wstring HashText(const std::string& content) {
  const std::vector<std::uint8_t> digest = simulation::DigestOf(L"SHA256", content);
  return HexText(digest.data(), digest.size());
}

}  // namespace kestrelon::test

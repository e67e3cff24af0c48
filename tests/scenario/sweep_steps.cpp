#include "tests/scenario/sweep_steps.h"

#include <cctype>
#include <chrono>
#include <map>
#include <thread>

#include "base/text.h"
#include "blocklists/blocklist_catalog.h"
#include "blocklists/refresh_blocklists.h"
#include "config/config_file.h"
#include "core/core_loop.h"
#include "core/core_state.h"
#include "core/version.h"
#include "tests/scenario/intruder.h"
#include "tests/updates/update_world.h"
#include "updates/apply_update.h"
#include "updates/check_update.h"
#include "updates/install_update.h"
#include "updates/update_settings.h"
#include "updates/update_state.h"

namespace kestrelon::test {
namespace {

constexpr const wchar_t* kOldVersion = L"C:\\App-1.0\\app.exe";
constexpr const wchar_t* kNewVersion = L"C:\\App-2.0\\app.exe";
const std::wstring kCache = L"C:\\ProgramData\\Kestrelon\\blocklists\\drop.txt";
constexpr std::uint64_t kMinuteMs = 60000;

// More than a page that is no list may hold by chance.
constexpr const wchar_t* kListed =
    L"203.0.113.5 192.0.2.1 192.0.2.3 192.0.2.5 192.0.2.7 192.0.2.9 192.0.2.11 192.0.2.13 "
    L"192.0.2.15 192.0.2.17";

AppEntry AllowedByHash(const std::wstring& path, const std::string& content) {
  AppEntry app = Allowed(path);
  app.sha256 = {HashText(content)};
  return app;
}

// The configuration that is in force when the trouble begins. One of its programs was replaced
// since it was allowed, and is held back.
Config OldConfig() {
  Config config = ConfigOf({AllowedByHash(kTool, "tool, first version"),
                            AllowedByHash(kReplacedProgram, "what was allowed"), Blocked(kOther)});
  config.rules = {AllowRule(L"updates"), BlockRule(L"never")};
  config.rules[0].remote = L"198.51.100.0/24";
  config.rules[0].remote_ports = L"443";
  config.rules[1].remote = L"203.0.113.66, 2001:db8::66";
  config.modules = {ApprovedModule()};
  return config;
}

// The one that is to take its place. It keeps one permission and moves the others.
Config NewConfig() {
  Config config = OldConfig();
  config.apps[2] = Allowed(kBrowser);
  config.apps[2].signer = kPublisher;
  config.rules[0].remote_ports = L"8443";
  config.rules.push_back(BlockRule(L"nor there"));
  config.rules[2].remote = L"203.0.113.67";
  return config;
}

// The service runs and watches so many directories, with a user at the screen. Its threads wait.
void Run(World& world, const Config& config, std::size_t directories = 2) {
  world.Program(kReplacedProgram, "what stands in its place");
  world.InstallModule();
  world.machine().sessions.SignIn(1);
  EXPECT_TRUE(world.StartWith(config));
  EXPECT_TRUE(world.machine().watches.WaitForOpen(directories));
  while (world.machine().pipes.waiting() < 2) std::this_thread::yield();
}

void RunOld(World& world) {
  Run(world, OldConfig());
}

// It has run, and the machine was restarted.
void RunOnce(World& world) {
  RunOld(world);
  world.Restart();
}

// And files were replaced meanwhile, or removed where there is no text.
Act Replaced(const std::map<std::wstring, std::string>& texts) {
  return [texts](World& world) {
    RunOnce(world);
    simulation::FileSystem& files = world.machine().files;
    for (const auto& [path, text] : texts)
      text.empty() ? files.Remove(path) : files.Write(path, text);
  };
}

void PrepareTampering(World& world) {
  RunOld(world);
  Intruder intruder;
  intruder.Add(intruder.ForeignFilter());
}

void PrepareExpiry(World& world) {
  Config config = OldConfig();
  config.apps[2] = AllowedByHash(kOther, "another program");
  config.apps[2].expires =
      world.machine().clock.SystemTime() + 5 * std::int64_t{kMinuteMs} * platform::kTimeStepsPerMs;
  Run(world, config);
  world.machine().clock.Advance(10 * kMinuteMs);
}

void PreparePrune(World& world) {
  Config config = OldConfig();
  for (const wchar_t* version : {kOldVersion, kNewVersion}) {
    world.Signed(version, Utf8FromWide(version), kPublisher);
    config.apps.push_back(Allowed(version));
    config.apps.back().signer = kPublisher;
  }
  Run(world, config, 4);
  world.machine().files.Remove(kOldVersion);
  world.machine().watches.WaitForWatchers();
}

void PrepareRefresh(World& world) {
  Config config = OldConfig();
  config.blocklists = {L"drop"};
  world.machine().http.Serve(BlocklistCatalog()[0].urls[0], {.body = Utf8FromWide(kListed)});
  world.machine().http.Serve(BlocklistCatalog()[0].urls[1], {.body = "# none today"});
  Run(world, config);
}

void Refresh(World&) {
  {
    GuardLock lock(ConfigGuard);
    StartBlocklistRefresh(Core.CurrentConfig, true);
  }
  while (BlocklistRefreshRunning()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  LoopPass();
}

std::string SavedList(World& world) {
  return CachedNetworks(world).empty() ? "the list is not saved" : "the list is saved";
}

void PrepareModuleOff(World& world) {
  RunOld(world);
  Config config = OldConfig();
  config.modules.clear();
  EXPECT_TRUE(world.Set(config).Get("ok").boolean());
}

void PrepareModuleOn(World& world) {
  RunOld(world);
  world.machine().sessions.SignIn(2);
}

Describe ModuleIn(std::uint32_t session) {
  return [session](World& world) {
    const std::size_t count = world.machine().processes.Running(kModuleFile, session).size();
    EXPECT_LE(count, 1U);
    return count == 0 ? "its process does not run" : "its process runs";
  };
}

// The vendor of this machine's updates; there is one machine in a process.
UpdateMachine& Vendor() {
  static UpdateMachine vendor;
  return vendor;
}

UpdateManifest Published() {
  return Vendor().Publish();
}

void PrepareCheck(World& world) {
  Config config = OldConfig();
  config.updates_auto_check = true;
  Vendor().Announce(UpdateMachine::TextOf(Published()));
  Run(world, config);
}

std::string Checked(World&) {
  return StoredLastCheck() == 0 ? "no check is noted" : "the check is noted";
}

void PrepareInstallation(World& world) {
  Config config = OldConfig();
  config.updates_auto_check = true;
  Vendor();
  // It is a step of its own.
  world.machine().processes.OnStart(kHelper, [](std::uint32_t) {});
  Run(world, config);
}

std::string Installation(World& world) {
  const bool runs = !world.machine().processes.Running(kHelper, 0).empty();
  const bool noted = StoredPendingInstall().has_value();
  EXPECT_TRUE(noted || !runs) << "nobody would tell how it went";
  return std::string(noted ? "noted as pending" : "not noted") + (runs ? ", the helper runs" : "");
}

void PrepareHelper(World& world) {
  PrepareInstallation(world);
  InstallThread(Published(), 1, L"sk");
  EXPECT_EQ(UpdateStateName(), kUpdateInstalling);
}

std::string Installed(World&) {
  const std::vector<std::string>& executed = Vendor().executed;
  EXPECT_TRUE(executed.empty() || executed == std::vector<std::string>{"version 1.2.3"});
  const auto told = StoredHelperExit();
  return std::string(executed.empty() ? "nothing ran, " : "the installer ran, ") +
         (told ? "result " + std::to_string(*told) : "no result");
}

void PrepareUpdatedStart(World& world) {
  RunOnce(world);
  EXPECT_EQ(StorePendingInstall({static_cast<std::uint32_t>(kBuild), kVersion, 1, 1}),
            platform::kSuccess);
}

std::string ToldOutcome(World&) {
  const std::wstring result = StoredLastInstall().result;
  return result.empty() ? "no outcome yet" : "outcome `" + Utf8FromWide(result) + "`";
}

void Pass(World&) {
  LoopPass();
}

void Start(World& world) {
  (void)world.Start();
}

void Change(World& world) {
  (void)world.Set(NewConfig());
}

void Check(World&) {
  CheckForUpdate(true);
}

void Install(World&) {
  InstallThread(Published(), 1, L"sk");
}

void Help(World&) {
  (void)ApplyUpdateHelper(kSetup, L"sk");
}

// Within the time that the service manager is told to wait, also where the disk is slow.
void Stop(World& world) {
  const std::uint64_t tick = world.machine().clock.Tick();
  world.Stop();
  EXPECT_LT(world.machine().clock.Tick() - tick, 10000U);
}

}  // namespace

const std::vector<SweepStep>& SweepSteps() {
  using enum SweepStep::Part;
  static const std::vector<SweepStep> steps = {
      {"first start", [](World&) {}, &Start},
      {"start", Replaced({{kConfigFile, ConfigText(NewConfig())}}), &Start},
      {"start, `config.json` damaged", Replaced({{kConfigFile, "damaged"}}), &Start, {}, kToEngine},
      {"start, `config.json` damaged, no copy",
       Replaced({{kConfigFile, "damaged"}, {kLastGood, ""}}),
       &Start,
       {},
       kToEngine},
      {"start, `config.json` deleted", Replaced({{kConfigFile, ""}}), &Start, {}, kToEngine},
      {"start after an update", &PrepareUpdatedStart, &Start, &ToldOutcome, kToEngine},
      {"configuration change", &RunOld, &Change},
      {"loop pass", &RunOld, &Pass},
      {"loop pass after tampering", &PrepareTampering, &Pass},
      {"end of a temporary permission", &PrepareExpiry, &Pass},
      {"an old version is pruned", &PreparePrune, &Pass},
      {"blocklist refresh", &PrepareRefresh, &Refresh, &SavedList, kWithWorker},
      {"module started", &PrepareModuleOn, &Pass, ModuleIn(2)},
      {"module turned off", &PrepareModuleOff, &Pass, ModuleIn(1)},
      {"update check", &PrepareCheck, &Check, &Checked},
      {"update installation", &PrepareInstallation, &Install, &Installation},
      {"update helper", &PrepareHelper, &Help, &Installed},
      {"stop", &RunOld, &Stop},
  };
  return steps;
}

std::string SweepStep::letters() const {
  std::string letters = name;
  std::erase_if(letters, [](char c) { return std::isalpha(static_cast<unsigned char>(c)) == 0; });
  return letters;
}

std::vector<Attempt> SweepProbes() {
  std::vector<Attempt> probes;
  for (const wchar_t* program : {kTool, kReplacedProgram, kOther, kBrowser, kOldVersion,
                                 kModuleFile, L"C:\\Tools\\unknown.exe"}) {
    for (const wchar_t* remote :
         {L"203.0.113.5", L"203.0.113.66", L"203.0.113.67", L"2001:db8::66", L"198.51.100.9"}) {
      probes.push_back(Out(program, remote, 443));
      probes.push_back(In(program, remote, 443));
    }
    probes.push_back(Out(program, L"198.51.100.9", 8443));
    probes.push_back(Udp(In(program, L"192.168.1.7", 53535)));
    probes.push_back(Loopback(Out(program, L"127.0.0.1", 80)));
  }
  probes.push_back(Out(L"System", L"192.168.1.7", 445));
  probes.push_back(Out(kLsass, L"203.0.113.80", 80));
  return probes;
}

bool IsPredefined(const Attempt& probe) {
  return probe.program == L"System" || probe.program == kLsass;
}

std::wstring CachedNetworks(World& world) {
  return world.machine().files.Exists(kCache) ? kListed : L"";
}

}  // namespace kestrelon::test

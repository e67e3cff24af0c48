// Every platform call of a start, a configuration change and an application fails once, and the
// power goes at every file operation: each time the engine holds the old or the new complete set,
// the configuration files load, and nothing is open that was closed.
#include <algorithm>

#include "base/text.h"
#include "config/config_file.h"
#include "core/config_change.h"
#include "platform/codes.h"
#include "platform/files.h"
#include "tests/scenario/child.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

// Far above what any of the scenarios takes, far below for ever.
constexpr int kMostRounds = 3000;

constexpr const wchar_t* kReplaced = L"C:\\Tools\\replaced.exe";

AppEntry AllowedByHash(const std::wstring& path, const std::string& content) {
  AppEntry app = Allowed(path);
  app.sha256 = {HashText(content)};
  return app;
}

// The configuration that is in force when the trouble begins. One of its programs was replaced
// since it was allowed, and is held back.
Config OldConfig() {
  Config config = ConfigOf({AllowedByHash(kTool, "tool, first version"),
                            AllowedByHash(kReplaced, "what was allowed"), Blocked(kOther)});
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

std::vector<Attempt> Probes() {
  std::vector<Attempt> probes;
  for (const wchar_t* program : {kTool, kOther, kBrowser, kModuleFile, L"C:\\Tools\\unknown.exe"}) {
    for (const wchar_t* remote :
         {L"203.0.113.5", L"203.0.113.66", L"203.0.113.67", L"2001:db8::66", L"198.51.100.9"}) {
      for (const std::uint16_t port : {std::uint16_t{443}, std::uint16_t{8443}}) {
        probes.push_back(Out(program, remote, port));
        probes.push_back(In(program, remote, port));
      }
    }
    probes.push_back(Loopback(Out(program, L"127.0.0.1", 80)));
  }
  return probes;
}

bool MayPass(World& world, const Config& config, const Attempt& attempt) {
  std::wstring why;
  return Judge(config, world.facts(), attempt, why) == Answer::kPass;
}

// Nothing is open that both configurations close.
void ExpectNothingOpened(World& world) {
  for (const Attempt& probe : Probes()) {
    if (MayPass(world, OldConfig(), probe) || MayPass(world, NewConfig(), probe)) continue;
    EXPECT_FALSE(world.Passes(probe)) << Utf8FromWide(world.Explain(probe));
  }
}

// The replaced program stays blocked, with one exception: a file whose attributes can't be read
// counts as absent, and an entry speaks for its path also while there is no file.
void ExpectReplacedHeld(World& world, bool attributes_failed) {
  const Attempt probe = Out(kReplaced, L"203.0.113.5", 443);
  EXPECT_TRUE(attributes_failed || !world.Passes(probe)) << Utf8FromWide(world.Explain(probe));
}

// Exactly what the configuration means is in force.
void ExpectInForce(World& world, const Config& config) {
  for (const Attempt& probe : Probes()) {
    EXPECT_EQ(world.Passes(probe), MayPass(world, config, probe))
        << Utf8FromWide(world.Explain(probe));
  }
}

// The old set as a whole, or none of it.
void ExpectWholeSet(World& world, const std::vector<Guid>& old_keys) {
  const std::vector<Guid> keys = world.FilterKeys();
  if (keys == old_keys) return;
  EXPECT_FALSE(keys.empty());
  for (const Guid& key : old_keys) {
    EXPECT_FALSE(std::binary_search(keys.begin(), keys.end(), key)) << GuidText(key);
  }
}

// A file that is there loads, and holds the old configuration or the new one.
void ExpectOneOfBoth(World& world, const std::wstring& path) {
  if (!world.machine().files.Exists(path)) return;
  const Config config = world.ConfigOnDisk(path);
  EXPECT_TRUE(config == OldConfig() || config == NewConfig()) << Utf8FromWide(path);
}

void ExpectFilesLoad(World& world) {
  EXPECT_TRUE(world.machine().files.Exists(kConfigFile));
  ExpectOneOfBoth(world, kConfigFile);
  ExpectOneOfBoth(world, std::wstring(kConfigFile) + L".lastgood");
}

// A machine that has run under the old configuration and was restarted.
void RunOnceUnderOld(World& world) {
  world.Program(kReplaced, "what stands in its place");
  world.InstallModule();
  world.machine().sessions.SignIn(1);
  world.PutConfig(OldConfig());
  EXPECT_TRUE(world.Start());
  world.Restart();
}

// What the process does with the machine when the trouble begins.
struct Scene {
  const char* name;
  // Brings the machine to the point where the trouble begins.
  void (*prepare)(World& world);
  // The act under trouble. Its result does not matter, its traces do.
  void (*act)(World& world);
};

void PrepareStart(World& world) {
  RunOnceUnderOld(world);
  world.machine().files.Write(kConfigFile, ConfigText(NewConfig()));
}

void PrepareRunning(World& world) {
  RunOnceUnderOld(world);
  EXPECT_TRUE(world.Start());
}

void ActReApply(World&) {
  GuardLock lock(ConfigGuard);
  ReApply(L"retry");
}

const Scene kScenes[] = {
    {"start under a new configuration", &PrepareStart, [](World& world) { (void)world.Start(); }},
    {"configuration change", &PrepareRunning, [](World& world) { (void)world.Set(NewConfig()); }},
    {"application", &PrepareRunning, &ActReApply},
};

// A later, undisturbed start puts what the file holds in force.
void ExpectNextStartIsRight(World& world) {
  world.Restart();
  // A process that starts anew verifies each file anew; this one remembers contents whose
  // verification was made to fail, so the signed program comes in a version it has not seen.
  world.Signed(kBrowser, "browser, second version", kPublisher);
  ASSERT_TRUE(world.Start());
  const Config config = world.ConfigOnDisk();
  EXPECT_TRUE(config == OldConfig() || config == NewConfig());
  ExpectInForce(world, config);
  world.Stop();
  world.ExpectNothingLeft();
}

// What the trouble left holds, and the machine goes on from there.
void ExpectHeld(World& world, const std::vector<Guid>& old_keys, bool attributes_failed) {
  ExpectNothingOpened(world);
  ExpectReplacedHeld(world, attributes_failed);
  ExpectWholeSet(world, old_keys);
  ExpectFilesLoad(world);
  ExpectNextStartIsRight(world);
}

Round FaultRound(const Scene& scene, int n) {
  World world;
  scene.prepare(world);
  const std::vector<Guid> old_keys = world.FilterKeys();
  world.machine().faults.FailNth(static_cast<std::uint64_t>(n), platform::kAccessDenied);
  scene.act(world);
  if (!world.machine().faults.fired()) return Round::kUntouched;
  const std::string failing = world.machine().faults.fired_name();
  SCOPED_TRACE(std::string(scene.name) + ", failing " + failing);
  world.machine().faults.Clear();
  EXPECT_FALSE(world.machine().engine.transaction_open());
  ExpectHeld(world, old_keys, failing == "QueryFileInformation");
  return Round::kStruck;
}

Round PowerRound(const Scene& scene, int n, simulation::CutMode mode) {
  World world;
  scene.prepare(world);
  const std::vector<Guid> old_keys = world.FilterKeys();
  world.machine().files.CutPowerAt(static_cast<std::uint64_t>(n), mode);
  scene.act(world);
  if (!world.machine().files.power_lost()) return Round::kUntouched;
  SCOPED_TRACE(std::string(scene.name) + ", power cut");
  world.Restart();
  ExpectHeld(world, old_keys, false);
  return Round::kStruck;
}

TEST(FailureSweep, EveryPlatformCallOfEachActFailsOnce) {
  for (const Scene& scene : kScenes) {
    const int struck = Sweep(kMostRounds, [&](int n) { return FaultRound(scene, n); });
    EXPECT_GT(struck, 20) << scene.name;
  }
}

TEST(FailureSweep, ThePowerGoesAtEveryFileOperationOfEachAct) {
  for (const Scene& scene : kScenes) {
    for (const simulation::CutMode mode :
         {simulation::CutMode::kLoseMetadata, simulation::CutMode::kKeepMetadata}) {
      (void)Sweep(kMostRounds, [&](int n) { return PowerRound(scene, n, mode); });
    }
  }
}

// A first start that is cut off leaves a machine that starts: with the default, or with what was
// recovered, but never with less protection.
TEST(FailureSweep, ThePowerGoesDuringAFirstStart) {
  (void)Sweep(kMostRounds, [](int n) {
    World world;
    world.machine().files.CutPowerAt(static_cast<std::uint64_t>(n),
                                     simulation::CutMode::kKeepMetadata);
    (void)world.Start();
    if (!world.machine().files.power_lost()) return Round::kUntouched;
    world.Restart();
    EXPECT_TRUE(world.Start());
    EXPECT_FALSE(world.Passes(Out(kTool, L"203.0.113.5", 443))) << Utf8FromWide(world.Log());
    (void)world.ConfigOnDisk();
    world.Stop();
    world.ExpectNothingLeft();
    return Round::kStruck;
  });
}

}  // namespace
}  // namespace kestrelon::test

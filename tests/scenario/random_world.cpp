#include "tests/scenario/random_world.h"

#include <cstdlib>

#include "base/text.h"
#include "config/config_file.h"
#include "platform/system_text.h"
#include "tests/scenario/intruder.h"

namespace kestrelon::test {
namespace {

const wchar_t* const kPrograms[] = {kTool,  kOther,    kBrowser, kSvchost,
                                    kLsass, L"System", kService, kModuleFile};
const wchar_t* const kAddresses[] = {L"10.0.0.1",     L"10.0.0.9",    L"10.200.0.1", L"192.168.1.7",
                                     L"192.0.2.53",   L"203.0.113.5", L"fe80::1",    L"2001:db8::1",
                                     L"2001:db8::ff", L"fd00::7"};
const wchar_t* const kRemotes[] = {L"10.0.0.1",       L"10.0.0.0/8",     L"10.0.0.0-10.0.0.8",
                                   L"0.0.0.0/0",      L"192.168.0.0/16", L"$dns",
                                   L"203.0.113.4/31", L"2001:db8::/120", L"2001:db8::ff",
                                   L"::/0",           L"fe80::/10",      L"203.0.113.5"};
const wchar_t* const kCustomLists[] = {L"", L"", L"", L"10.0.0.9", L"203.0.113.0/24 fd00::/8; ::1"};
const wchar_t* const kPortTexts[] = {L"53", L"80", L"443", L"80-443", L"0-65535", L"1-79, 444"};
const std::uint16_t kPorts[] = {1, 53, 79, 80, 443, 444, 5353};
const std::uint8_t kProtocols[] = {6, 6, 17, 17, 1, 58, 47};
const wchar_t* const kUsers[] = {L"S-1-5-4", L"S-1-5-18",
                                 L"S-1-5-80-859482183-879914841-863379149-1145462774-2388618682"};

RuleEntry RandomRule(Dice& dice) {
  RuleEntry rule;
  rule.name = L"rule";
  rule.enabled = !dice.OneIn(6);
  rule.allow = !dice.OneIn(3);
  rule.direction = static_cast<std::uint32_t>(dice.Below(3));
  rule.protocol = dice.OneIn(2) ? 0 : dice.Of(kProtocols);
  rule.remote = dice.Join(kRemotes, 3);
  if (dice.OneIn(2)) rule.remote_ports = dice.Join(kPortTexts, 2);
  if (dice.OneIn(4)) rule.local_ports = dice.Join(kPortTexts, 2);
  if (dice.OneIn(2)) rule.app = dice.Of(kPrograms);
  if (dice.OneIn(5)) rule.user = dice.Of(kUsers);
  return rule;
}

AppEntry RandomApp(Dice& dice, const World& world) {
  AppEntry app = dice.OneIn(6) ? Allowed(L"service:Dnscache") : Allowed(dice.Of(kPrograms));
  app.allow = !dice.OneIn(3);
  app.inbound = dice.OneIn(2);
  if (dice.OneIn(4)) {
    app.signer = dice.OneIn(2) ? kPublisher : L"Somebody Else";
  } else if (dice.OneIn(3)) {
    const auto file = world.facts().files.find(platform::LowerCase(app.path));
    app.sha256 = {file != world.facts().files.end() && dice.OneIn(2) ? file->second.sha256
                                                                     : std::wstring(64, L'0')};
  }
  // The kernel has no file of its own to be judged by.
  if (app.path == L"System") {
    app.signer.clear();
    app.sha256.clear();
  }
  return app;
}

// In a transaction, so that nobody else takes the same filter away.
void Tamper(World& world, Dice& dice) {
  platform::EngineHandle session = 0;
  if (platform::OpenEngineSession({L"intruder", 0, 1000}, session)) return;
  if (platform::BeginTransaction(session, 0) == platform::kSuccess) {
    const std::vector<Guid> keys = world.FilterKeys();
    const platform::Filter foreign = Intruder::ForeignFilter();
    std::uint64_t id = 0;
    if (dice.OneIn(2)) {
      (void)platform::AddFilter(session, foreign, {}, id);
    } else if (!keys.empty()) {
      EXPECT_EQ(platform::DeleteFilter(session, keys[dice.Below(keys.size())]), platform::kSuccess);
    }
    (void)platform::CommitTransaction(session);
  }
  platform::CloseEngineSession(session);
}

void HappenToSession(World& world, Dice& dice) {
  constexpr std::uint32_t kClosedByUser = 0x4B530000;
  simulation::Machine& machine = world.machine();
  const auto session = static_cast<std::uint32_t>(1 + dice.Below(2));
  if (dice.OneIn(3)) return machine.sessions.SignIn(session);
  if (dice.OneIn(3)) return machine.sessions.SignOut(session);
  for (const std::uint32_t id : machine.processes.Running(kModuleFile, session)) {
    machine.processes.End(id, dice.OneIn(3) ? kClosedByUser : 0);
  }
}

void HappenToFile(World& world, Dice& dice, Happening kind) {
  if (kind == Happening::kHarmless) {
    world.machine().files.Write(L"C:\\Tools\\unlisted.exe", dice.OneIn(2) ? "one" : "another");
  } else if (dice.OneIn(2)) {
    world.Program(dice.OneIn(2) ? kTool : kOther, dice.OneIn(2) ? "one" : "another");
  } else if (dice.OneIn(3)) {
    world.ReplaceModule();
  } else {
    world.InstallModule(kRandomModule, kRandomGrant);
  }
  // Else a block by the file watch may come right behind a pass, and stay until the next.
  world.machine().watches.WaitForWatchers();
}

}  // namespace

void HappenTo(World& world, Dice& dice, Happening kind) {
  simulation::Machine& machine = world.machine();
  switch (dice.Below(kind == Happening::kAny ? 6 : 4)) {
    case 0:
      return machine.engine.Stop();
    case 1:
      return machine.network.ChangeInterfaces();
    case 2:
      return HappenToSession(world, dice);
    case 3:
      return HappenToFile(world, dice, kind);
    case 4:
      return machine.network.SetDnsServers({dice.OneIn(2) ? L"192.0.2.53" : L"192.0.2.54"});
    default:
      return Tamper(world, dice);
  }
}

std::uint32_t FirstSeed() {
  const char* seed = std::getenv("KESTRELON_SEED");
  return seed == nullptr ? std::random_device{}() : static_cast<std::uint32_t>(std::stoul(seed));
}

bool SeedIsGiven() {
  return std::getenv("KESTRELON_SEED") != nullptr;
}

Config RandomConfig(Dice& dice, const World& world) {
  Config config;
  config.presets_version = 9;
  config.enabled = !dice.OneIn(25);
  config.allow_loopback = !dice.OneIn(3);
  for (std::size_t left = dice.Below(5); left > 0; --left) {
    config.apps.push_back(RandomApp(dice, world));
  }
  for (std::size_t left = dice.Below(7); left > 0; --left) config.rules.push_back(RandomRule(dice));
  if (dice.OneIn(3)) config.blocklists = {dice.OneIn(2) ? L"drop" : L"DROP", L"unknown"};
  config.blocklists_auto_update = dice.OneIn(2);
  config.updates_auto_check = dice.OneIn(2);
  if (dice.OneIn(2)) {
    config.modules = {ApprovedModule(dice.OneIn(3) ? kModuleGrant : kRandomGrant)};
    config.modules[0].enabled = !dice.OneIn(4);
  }
  config.custom_blocklist = dice.Of(kCustomLists);
  return config;
}

Attempt RandomAttempt(Dice& dice) {
  Attempt attempt = Out(dice.Of(kPrograms), dice.Of(kAddresses), dice.Of(kPorts));
  attempt.inbound = dice.OneIn(2);
  attempt.protocol = dice.Of(kProtocols);
  attempt.local_port = dice.Of(kPorts);
  if (attempt.program == kModuleFile && dice.OneIn(2)) attempt.local_port = attempt.remote_port;
  attempt.loopback = dice.OneIn(5);
  if (dice.OneIn(2)) attempt.users = {dice.Of(kUsers)};
  return attempt;
}

bool ExpectJudged(World& world, const Config& config, Dice& dice, int attempts,
                  std::uint32_t seed) {
  OracleFacts facts = world.facts();
  const auto servers = world.machine().network.Adapters()[0].dns_servers;
  facts.dns_servers = servers.empty() ? L"" : servers[0].text;
  for (int i = 0; i < attempts; ++i) {
    const Attempt attempt = RandomAttempt(dice);
    std::wstring why;
    const bool expected = Judge(config, facts, attempt, why) == Answer::kPass;
    if (world.Passes(attempt) == expected) continue;
    ADD_FAILURE() << "seed " << seed << ": the oracle says '" << Utf8FromWide(why) << "', but "
                  << Utf8FromWide(world.Explain(attempt)) << "\n"
                  << ConfigText(config) << Utf8FromWide(world.Log());
    return false;
  }
  return true;
}

}  // namespace kestrelon::test

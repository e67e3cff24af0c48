// Thousands of random configurations, each compared with the oracle on random connections. A
// failure prints the seed; KESTRELON_SEED runs that one again.
#include <cstdlib>
#include <random>

#include "base/text.h"
#include "config/config_file.h"
#include "core/config_change.h"
#include "filtering/apply_config.h"
#include "filtering/filter_engine.h"
#include "platform/system_text.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

constexpr int kConfigurations = 2000;
constexpr int kConnectionsEach = 50;

// A small world in which entries and connections often meet.
const wchar_t* const kPrograms[] = {kTool, kOther, kBrowser, kSvchost, kLsass, L"System"};
const wchar_t* const kAddresses[] = {L"10.0.0.1",     L"10.0.0.9",    L"10.200.0.1", L"192.168.1.7",
                                     L"192.0.2.53",   L"203.0.113.5", L"fe80::1",    L"2001:db8::1",
                                     L"2001:db8::ff", L"fd00::7"};
const wchar_t* const kRemotes[] = {L"10.0.0.1",       L"10.0.0.0/8",     L"10.0.0.0-10.0.0.8",
                                   L"0.0.0.0/0",      L"192.168.0.0/16", L"$dns",
                                   L"203.0.113.4/31", L"2001:db8::/120", L"2001:db8::ff",
                                   L"::/0",           L"fe80::/10",      L"203.0.113.5"};
const wchar_t* const kPortTexts[] = {L"53", L"80", L"443", L"80-443", L"0-65535", L"1-79, 444"};
const std::uint16_t kPorts[] = {1, 53, 79, 80, 443, 444, 5353};
const std::uint8_t kProtocols[] = {6, 6, 17, 17, 1, 58, 47};
const wchar_t* const kUsers[] = {L"S-1-5-4", L"S-1-5-18",
                                 L"S-1-5-80-859482183-879914841-863379149-1145462774-2388618682"};

class Dice {
 public:
  explicit Dice(std::uint32_t seed) : engine_(seed) {}

  bool OneIn(int sides) { return Below(static_cast<std::size_t>(sides)) == 0; }
  std::size_t Below(std::size_t limit) { return engine_() % limit; }
  template <typename T, std::size_t N>
  const T& Of(const T (&items)[N]) {
    return items[Below(N)];
  }
  // Up to `most` of the items, joined.
  template <std::size_t N>
  std::wstring Join(const wchar_t* const (&items)[N], std::size_t most) {
    std::wstring text;
    for (std::size_t left = Below(most + 1); left > 0; --left) {
      text += (text.empty() ? L"" : L", ") + std::wstring(Of(items));
    }
    return text;
  }

 private:
  std::mt19937 engine_;
};

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

Config RandomConfig(Dice& dice, const World& world) {
  Config config;
  config.presets_version = 9;
  config.enabled = !dice.OneIn(25);
  config.allow_loopback = !dice.OneIn(3);
  for (std::size_t left = dice.Below(5); left > 0; --left) {
    config.apps.push_back(RandomApp(dice, world));
  }
  for (std::size_t left = dice.Below(7); left > 0; --left) config.rules.push_back(RandomRule(dice));
  return config;
}

Attempt RandomAttempt(Dice& dice) {
  Attempt attempt = Out(dice.Of(kPrograms), dice.Of(kAddresses), dice.Of(kPorts));
  attempt.inbound = dice.OneIn(2);
  attempt.protocol = dice.Of(kProtocols);
  attempt.local_port = dice.Of(kPorts);
  attempt.loopback = dice.OneIn(5);
  if (dice.OneIn(2)) attempt.users = {dice.Of(kUsers)};
  return attempt;
}

// Compares one random configuration; false at the first difference.
bool Compare(World& world, std::uint32_t seed) {
  Dice dice(seed);
  const Config config = RandomConfig(dice, world);
  world.machine().network.SetDnsServers(dice.OneIn(4) ? std::vector<std::wstring>{}
                                                      : std::vector<std::wstring>{L"192.0.2.53"});
  OracleFacts facts = world.facts();
  facts.dns_servers =
      world.machine().network.Adapters()[0].dns_servers.empty() ? L"" : L"192.0.2.53";
  {
    GuardLock lock(ConfigGuard);
    Config copy = config;
    std::wstring error;
    bool changed = false;
    if (!ApplyConfig(copy, error, changed)) {
      ADD_FAILURE() << "seed " << seed << ": " << Utf8FromWide(error);
      return false;
    }
  }
  for (int i = 0; i < kConnectionsEach; ++i) {
    const Attempt attempt = RandomAttempt(dice);
    std::wstring why;
    const bool expected = Judge(config, facts, attempt, why) == Answer::kPass;
    if (world.Passes(attempt) == expected) continue;
    ADD_FAILURE() << "seed " << seed << ": the oracle says '" << Utf8FromWide(why) << "', but "
                  << Utf8FromWide(world.Explain(attempt)) << "\n"
                  << ConfigText(config);
    return false;
  }
  return true;
}

TEST(RandomComparison, TheEngineDecidesAsTheConfigurationSays) {
  World world;
  ASSERT_TRUE(world.Start());
  if (const char* seed = std::getenv("KESTRELON_SEED")) {
    (void)Compare(world, static_cast<std::uint32_t>(std::stoul(seed)));
  } else {
    const std::uint32_t first = std::random_device{}();
    for (std::uint32_t i = 0; i < kConfigurations; ++i) {
      if (!Compare(world, first + i)) break;
    }
  }
  world.Stop();
  world.ExpectNothingLeft();
}

}  // namespace
}  // namespace kestrelon::test

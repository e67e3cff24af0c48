// Thousands of random configurations, each compared with the oracle on random connections. A
// failure prints the seed; KESTRELON_SEED runs that one again.
#include "base/text.h"
#include "core/config_change.h"
#include "filtering/apply_config.h"
#include "filtering/filter_engine.h"
#include "tests/scenario/random_world.h"

namespace kestrelon::test {
namespace {

constexpr std::uint32_t kConfigurations = 2000;
constexpr int kConnectionsEach = 50;

// Compares one random configuration; false at the first difference.
bool Compare(World& world, std::uint32_t seed) {
  Dice dice(seed);
  const Config config = RandomConfig(dice, world);
  world.machine().network.SetDnsServers(dice.OneIn(4) ? std::vector<std::wstring>{}
                                                      : std::vector<std::wstring>{L"192.0.2.53"});
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
  return ExpectJudged(world, config, dice, kConnectionsEach, seed);
}

TEST(RandomComparison, TheEngineDecidesAsTheConfigurationSays) {
  World world;
  world.InstallBlocklist(L"203.0.113.4/31, 2001:db8::/120");
  world.InstallModule(kRandomModule, kRandomGrant);
  ASSERT_TRUE(world.Start());
  const std::uint32_t first = FirstSeed();
  const std::uint32_t count = SeedIsGiven() ? 1 : kConfigurations;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (!Compare(world, first + i)) break;
  }
  world.Stop();
  world.ExpectNothingLeft();
}

}  // namespace
}  // namespace kestrelon::test

// The store under a power cut in each operation and under the failure of each platform call: what
// comes into force afterwards is what the user had, or blocks more than that.
#include <gtest/gtest.h>

#include <functional>

#include "config/config_file.h"
#include "config/config_store.h"
#include "config/presets.h"
#include "platform/files.h"
#include "tests/config/store_world.h"

namespace kestrelon::test {
namespace {

using simulation::CutMode;

const Config kOld = MarkedConfig(L"old");
const Config kNew = MarkedConfig(L"new");

using Step = std::function<void(StoreWorld&)>;

// Runs `work` on a machine put in order by `prepare`, with the power cut in the first operation, in
// the second and so on, and `check`s the machine after its restart; in the last round all went
// well. Unflushed names are lost in one pass and kept in another. Gives the number of cuts in each.
std::uint64_t SweepPowerCuts(const Step& prepare, const Step& work, const Step& check) {
  std::uint64_t cuts = 0;
  for (const CutMode mode : {CutMode::kLoseMetadata, CutMode::kKeepMetadata}) {
    bool happened = true;
    for (cuts = 0; happened && !testing::Test::HasFailure(); cuts += happened ? 1 : 0) {
      StoreWorld world;
      prepare(world);
      world.files().CutPowerAt(cuts + 1, mode);
      work(world);
      happened = world.files().power_lost();
      world.machine().Restart();
      check(world);
      if (testing::Test::HasFailure()) ADD_FAILURE() << "cut in operation " << cuts + 1;
      world.files().Remove(kDirectory);
    }
  }
  return cuts;
}

// A way to begin.
struct StartCase {
  const char* name;
  Step prepare;
  Config obtained;  // in force after this start and the next one
};

std::vector<StartCase> StartCases() {
  const auto put = [](bool created, const char* file, bool last_good) {
    return [=](StoreWorld& world) {
      world.SetCreated(created ? 1 : 0);
      if (*file) world.files().Write(kConfigFile, file);
      if (last_good) world.Put(kLastGood, kOld);
    };
  };
  static const std::string old_text = ConfigText(kOld);
  return {{"loads", put(true, old_text.c_str(), true), kOld},
          {"damaged", put(true, "damage", true), kOld},
          {"nothing to restore", put(true, "damage", false), StrictConfig()},
          {"deleted", put(true, "", true), kOld},
          {"first start", put(false, "", false), DefaultConfig()}};
}

TEST(StoreUnderPowerCuts, ASaveLeavesTheOldConfigurationOrTheNewOne) {
  bool saved = false;
  const auto prepare = [&](StoreWorld& world) {
    world.Put(kConfigFile, kOld);
    world.Put(kLastGood, kOld);
    world.SetCreated();
  };
  const auto work = [&](StoreWorld&) {
    std::wstring error;
    saved = SaveConfigWithLastGood(kConfigFile, kNew, error);
  };
  const auto check = [&](StoreWorld& world) {
    const Config file = world.Loaded(kConfigFile);
    const Config last_good = world.Loaded(kLastGood);
    EXPECT_TRUE(file == kNew || (!saved && file == kOld));
    EXPECT_TRUE(last_good == kOld || (last_good == kNew && file == kNew));
    EXPECT_EQ(world.Obtain(), file);
    EXPECT_EQ(world.Fallback(), L"|||");
  };
  EXPECT_EQ(SweepPowerCuts(prepare, work, check), 8u);
}

TEST(StoreUnderPowerCuts, AStartEndsInTheSameConfigurationWhereverItIsCutOff) {
  for (const StartCase& start : StartCases()) {
    SCOPED_TRACE(start.name);
    const auto check = [&](StoreWorld& world) {
      EXPECT_EQ(world.Obtain(), start.obtained);
      EXPECT_TRUE(world.Created());
    };
    EXPECT_GE(SweepPowerCuts(
                  start.prepare, [](StoreWorld& w) { w.Obtain(); }, check),
              4u);
  }
}

// Each way to begin with every platform call failing once in turn.
TEST(ObtainStartConfigUnderFaults, NothingOpensThatTheUserDidNotHave) {
  for (const StartCase& start : StartCases()) {
    for (std::uint64_t n = 1;; ++n) {
      StoreWorld world;
      start.prepare(world);
      world.machine().faults.FailNth(n, platform::kAccessDenied);
      const Config first = world.Obtain();
      const bool recovered = world.Fallback() != L"|||";
      const bool fired = world.machine().faults.fired();
      const std::string call = world.machine().faults.fired_name();
      world.machine().faults.Clear();
      const Config second = world.Obtain();
      // Without the registry a deleted configuration can't be told from a first start.
      const bool forgotten =
          start.name == std::string("deleted") && call == "ReadRegistryDword" && !recovered;
      const Config expected = forgotten ? DefaultConfig() : start.obtained;
      for (const Config* config : {&first, &second}) {
        EXPECT_TRUE(*config == expected || *config == StrictConfig())
            << start.name << ", failed call " << n << ": " << call;
      }
      EXPECT_EQ(world.files().open_handles(), 0u);
      world.files().Remove(kDirectory);
      if (fired) continue;
      EXPECT_GT(n, 8u) << start.name;
      break;
    }
  }
}

}  // namespace
}  // namespace kestrelon::test

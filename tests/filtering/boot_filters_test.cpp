// What protects before the engine has loaded the persistent filters, and what becomes of a refusal.

#include "filtering/boot_filters.h"

#include <tuple>

#include "base/text.h"
#include "filtering/filter_keys.h"
#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

constexpr const wchar_t* kRefusal = L"0x00000005 - Access is denied.";

class BootFilters : public FilterWorld {
 protected:
  bool InstallBoot(bool wanted, bool allow_loopback) {
    return InstallBootFilters(TheEngine, wanted, allow_loopback, error_);
  }

  // What is there; the cases install no others.
  std::vector<platform::Filter> Present() const {
    std::vector<platform::Filter> present;
    for (const auto& filter : machine_.engine.Filters()) present.push_back(*filter);
    return present;
  }

  int Expected() const {
    GuardLock lock(TheEngine.EngineGuard);
    return TheEngine.BootExpected;
  }
};

TEST_F(BootFilters, DecideAloneUntilTheEngineHasStarted) {
  for (const int form : {0, 1, 2, 3}) {
    SCOPED_TRACE(form);
    const bool allow_loopback = form % 2 == 1;
    const bool first_form_refused = form >= 2;
    if (first_form_refused) machine_.faults.FailOnce("AddFilter", platform::kAccessDenied);
    ASSERT_TRUE(InstallBoot(true, allow_loopback)) << Utf8FromWide(error_);
    for (const platform::Filter& filter : Present()) {
      EXPECT_EQ(filter.provider.has_value(), !first_form_refused);
      const bool firm = filter.action == platform::kActionBlock && !first_form_refused;
      EXPECT_EQ(filter.flags, firm ? 10u : 2u);
      EXPECT_EQ(filter.description, L"Kestrelon firewall");
    }
    machine_.engine.Restart();
    for (const FilterLayer& layer : kFilterLayers) {
      simulation::Connection connection = AppConnection(layer.key);
      EXPECT_EQ(DecidedBy(connection), L"Kestrelon - Boot-time block");
      EXPECT_FALSE(Passes(connection));
      connection.flags = platform::kConditionFlagLoopback;
      EXPECT_EQ(Passes(connection), allow_loopback);
    }
    machine_.engine.Start();
    CloseEngine(TheEngine);
    ASSERT_TRUE(OpenEngine(TheEngine, error_)) << Utf8FromWide(error_);
  }
}

TEST_F(BootFilters, EachRunReplacesTheSetWithKeysInTheOrderOfAdding) {
  EXPECT_EQ(Expected(), -1);
  const std::tuple<bool, bool, std::size_t> cases[] = {
      {true, true, 8}, {true, false, 4}, {true, true, 8}, {false, true, 0}};
  for (const auto& [wanted, allow_loopback, count] : cases) {
    ASSERT_TRUE(InstallBoot(wanted, allow_loopback)) << Utf8FromWide(error_);
    const std::vector<platform::Filter> present = Present();
    ASSERT_EQ(present.size(), count);
    EXPECT_EQ(Expected(), static_cast<int>(count));
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_EQ(present[i].key, BootFilterKeys[i]);
      EXPECT_EQ(present[i].layer, kFilterLayers[i % 4].key);
      EXPECT_EQ(present[i].name,
                i < 4 ? L"Kestrelon - Boot-time block" : L"Kestrelon - Boot-time loopback");
    }
  }
}

TEST_F(BootFilters, ARefusalIsToldAndWhatIsThereIsExpected) {
  const std::tuple<const char*, bool, const wchar_t*> cases[] = {
      {"BeginTransaction", true, L"FwpmTransactionBegin0: "},
      {"DeleteFilter", true, L"FwpmFilterDeleteByKey0 (boot): "},
      {"AddFilter", true, L"FwpmFilterAdd0 (Kestrelon - Boot-time block): "},
      {"CommitTransaction", true, L"FwpmTransactionCommit0 (boot): "},
      {"CommitTransaction", false, L"FwpmTransactionCommit0 (boot): "},
  };
  ASSERT_TRUE(InstallBoot(true, false));
  for (const auto& [call, wanted, sentence] : cases) {
    machine_.faults.FailAlways(call, platform::kAccessDenied);
    EXPECT_FALSE(InstallBoot(wanted, true)) << call;
    machine_.faults.Clear();
    EXPECT_EQ(error_, std::wstring(sentence) + kRefusal);
    EXPECT_EQ(Present().size(), 4u);
    EXPECT_EQ(Expected(), 4);
    EXPECT_FALSE(machine_.engine.transaction_open());
  }
  machine_.faults.FailAlways("CommitTransaction", platform::kAccessDenied);
  machine_.faults.FailOnce("DeleteFilter", platform::kAccessDenied);
  EXPECT_FALSE(InstallBoot(true, true));
  EXPECT_EQ(error_, std::wstring(L"FwpmFilterDeleteByKey0 (boot): ") + kRefusal +
                        L"; FwpmTransactionCommit0 (boot): " + kRefusal)
      << "two different ones are both told";
  CloseEngine(TheEngine);
  EXPECT_FALSE(InstallBoot(true, true));
  EXPECT_EQ(error_, L"WFP engine is not open");
}

class BootFilterRetries : public BootFilters {
 protected:
  BootFilterRetries() { config_.boot_time_filter = true; }

  // One application, with the warning that it is to give.
  void ApplyBoot(const std::wstring& warning) {
    GuardLock lock(ConfigGuard);
    std::vector<std::wstring> warnings;
    ApplyBootFilters(config_, warnings);
    EXPECT_EQ(warnings, warning.empty() ? std::vector<std::wstring>{} : std::vector{warning});
  }

  void Retry() {
    GuardLock lock(ConfigGuard);
    Core.CurrentConfig = config_;
    RetryBootFilters();
  }

  // Without a step no further try is planned.
  void ExpectState(bool installed, std::uint64_t step) const {
    GuardLock lock(ConfigGuard);
    EXPECT_EQ(Core.BootInstalled, installed);
    EXPECT_EQ(Core.BootRetryStep, step);
    EXPECT_EQ(Core.BootRetryAt, step == 0 ? 0 : machine_.clock.Tick() + step);
  }

  void Refuse() { machine_.faults.FailAlways("CommitTransaction", platform::kAccessDenied); }

  Config config_;
  const std::wstring refused_ = std::wstring(L"FwpmTransactionCommit0 (boot): ") + kRefusal;
  const std::wstring not_installed_ = L"Boot-time filter could not be installed: " + refused_;
};

TEST_F(BootFilterRetries, StepsDoubleFromOneMinuteToThirty) {
  constexpr std::uint64_t kSteps[] = {60000, 120000, 240000, 480000, 960000, 1800000, 1800000};
  Refuse();
  ApplyBoot(not_installed_);
  for (const std::uint64_t step : kSteps) {
    ExpectState(false, step);
    machine_.clock.Advance(step - 1);
    Retry();  // not yet
    machine_.clock.Advance(1);
    Retry();
  }
  EXPECT_EQ(LogCount("Boot-time filters still cannot be installed (" + Utf8FromWide(refused_) +
                     ") - next try in 2 min"),
            1u);
  EXPECT_EQ(LogCount("next try in 30 min"), 3u);
  machine_.faults.Clear();
  for (int i = 0; i < 2; ++i) {
    machine_.clock.Advance(1800000);
    Retry();
    ExpectState(true, 0);
  }
  EXPECT_EQ(LogCount("Boot-time filters installed (retry)"), 1u);

  // Applications go the same steps.
  Refuse();
  for (const std::uint64_t step : {60000u, 120000u}) {
    ApplyBoot(not_installed_);
    ExpectState(false, step);
  }
  machine_.faults.Clear();
  ApplyBoot(L"");
  ExpectState(true, 0);
}

TEST_F(BootFilterRetries, NothingIsTriedAgainThatIsNotWantedAnyMore) {
  Refuse();
  ApplyBoot(not_installed_);
  for (bool Config::*switched : {&Config::enabled, &Config::boot_time_filter}) {
    config_.*switched = false;
    machine_.clock.Advance(60000);
    Retry();
    config_.*switched = true;
  }
  EXPECT_EQ(LogCount("Boot-time filters"), 0u);
  config_.enabled = false;
  ApplyBoot(L"Boot-time filter could not be removed: " + refused_);
  ExpectState(false, 0);
}

}  // namespace
}  // namespace kestrelon

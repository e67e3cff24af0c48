// The installed service: what it is, what it holds in the engine, and how it lives on.
#include "base/text.h"
#include "core/own_service.h"
#include "core/version.h"
#include "filtering/filter_keys.h"
#include "filtering/lock_descriptors.h"
#include "platform/clock.h"
#include "platform/services.h"
#include "tools/check/cases.h"
#include "tools/check/system_facts.h"

namespace kestrelon::check {
namespace {

using Service = InstalledService;

// How often the service found its filters changed by somebody.
std::size_t TamperingsLogged() {
  constexpr std::string_view kSentence = "Kestrelon filters were modified externally";
  const std::string log = ServiceLog();
  std::size_t count = 0;
  for (std::size_t at = log.find(kSentence); at != std::string::npos; ++count) {
    at = log.find(kSentence, at + kSentence.size());
  }
  return count;
}

platform::Filter SomeFilter() {
  const std::vector<platform::Filter> filters = ProductFilters();
  return filters.empty() ? platform::Filter{} : filters.front();
}

TEST_F(Service, IsRegisteredWithItsQuotedPath) {
  platform::ServiceHandle service;
  ASSERT_EQ(OpenOwnService(platform::kServiceQueryConfig, service), platform::kSuccess);
  platform::ServiceSettings settings;
  ASSERT_EQ(platform::QueryServiceSettings(service, settings), platform::kSuccess);
  EXPECT_EQ(Utf8FromWide(settings.display_name), "Kestrelon Firewall");
  EXPECT_EQ(Utf8FromWide(settings.binary_path), Utf8FromWide(L"\"" + ServiceExecutable() + L"\""));
}

TEST_F(Service, TellsThatItProtects) {
  const Json status = Ask(kStatus);
  EXPECT_EQ(status.Get("version").StringOr(L""), kVersion);
  EXPECT_EQ(status.Get("build").StringOr(L""), std::to_wstring(kBuild));
  EXPECT_TRUE(status.Get("enabled").boolean());
  EXPECT_TRUE(status.Get("boot_filter").boolean()) << status.Dump(true);
  EXPECT_EQ(status.Get("last_error").text(), "");
  EXPECT_FALSE(status.Has("fallback"));
  EXPECT_EQ(static_cast<std::size_t>(status.Get("filters").integer()), ProductFilters().size());
}

TEST_F(Service, TakesTheBlocklistsThatLieBesideIt) {
  const Json list = Ask(kStatus).Get("blocklists").At(0);
  EXPECT_EQ(list.Get("source").text(), "bundled") << list.Dump(false);
  EXPECT_GT(list.Get("entries").integer(), 0);
}

TEST_F(Service, HoldsFiltersThatPersistInASublayerAboveAllOthers) {
  const EngineSession engine;
  platform::Sublayer sublayer;
  ASSERT_EQ(platform::GetSublayer(engine, SubLayerKey, sublayer), platform::kSuccess);
  EXPECT_EQ(sublayer.weight, kSublayerWeight);
  for (const platform::Filter& filter : ProductFilters()) {
    EXPECT_TRUE((filter.flags & platform::kFilterPersistent) != 0) << Utf8FromWide(filter.name);
    EXPECT_TRUE(filter.sublayer == SubLayerKey && filter.provider == ProviderKey);
  }
}

TEST_F(Service, HoldsFiltersForTheComputersStartInItsOwnSublayer) {
  const std::vector<platform::Filter> filters = BootFilters();
  EXPECT_EQ(filters.size(), 8u);
  for (const platform::Filter& filter : filters) {
    EXPECT_TRUE((filter.flags & platform::kFilterBootTime) != 0);
    EXPECT_TRUE(filter.sublayer == SubLayerKey && filter.provider == ProviderKey);
  }
}

TEST_F(Service, LeavesItsFiltersWhenItStopsAndTakesThemOverWhenItStarts) {
  const std::vector<platform::Filter> filters = ProductFilters();
  ASSERT_TRUE(BringDownService());
  EXPECT_EQ(KeysOf(ProductFilters()), KeysOf(filters));
  EXPECT_EQ(BootFilters().size(), 8u);
  ASSERT_TRUE(BringUpService());
  EXPECT_EQ(Ask(kStatus).Get("last_error").text(), "");
  EXPECT_EQ(ProductFilters().size(), filters.size());
}

TEST_F(Service, IsStartedAgainWhenItsProcessHasDied) {
  ASSERT_TRUE(EndProductProcesses());
  EXPECT_FALSE(ProductFilters().empty());
  EXPECT_TRUE(Within(20, [] {
    return ServiceState() == platform::kServiceRunning && !ProductProcesses().empty();
  }));
  EXPECT_TRUE(Ask(kStatus).Get("enabled").boolean());
}

// The record of what was added must be what the engine gives back, or each pass would find a
// change.
TEST_F(Service, FindsNothingChangedUntilSomebodyTakesAFilterAway) {
  const EngineSession engine;
  const std::size_t filters = ProductFilters().size();
  const platform::Filter taken = SomeFilter();
  EXPECT_EQ(TamperingsLogged(), 0u);
  (void)platform::SetFilterDacl(engine, taken.key, UnlockDescriptor());
  ASSERT_EQ(platform::DeleteFilter(engine, taken.key), platform::kSuccess);
  EXPECT_TRUE(Within(20, [&] { return ProductFilters().size() == filters; }));
  // Its own work wakes it too, and must not look like another's.
  platform::SleepMilliseconds(1500);
  EXPECT_EQ(TamperingsLogged(), 1u) << ServiceLog();
}

TEST_F(Service, KeepsElevatedAdministratorsFromItsFilters) {
  if (RunsAsLocalSystem()) GTEST_SKIP() << "this check runs as LocalSystem, which may change them";
  const EngineSession engine;
  platform::Filter filter = SomeFilter();
  EXPECT_EQ(platform::DeleteFilter(engine, filter.key), platform::kAccessDenied);
  EXPECT_EQ(platform::DeleteSublayer(engine, SubLayerKey), platform::kAccessDenied);
  EXPECT_EQ(platform::DeleteProvider(engine, ProviderKey), platform::kAccessDenied);
  filter.key = Guid{};
  std::uint64_t id = 0;
  EXPECT_EQ(platform::AddFilter(engine, filter, {}, id), platform::kAccessDenied);
}

}  // namespace
}  // namespace kestrelon::check

// The ways back: protection off at once, and all of it gone.
#include "core/own_service.h"
#include "filtering/filter_keys.h"
#include "tools/check/cases.h"

namespace kestrelon::check {
namespace {

using Removal = InstalledService;

TEST_F(Removal, OfTheFiltersLeavesTheServiceInReach) {
  ASSERT_TRUE(SetConfig(R"({"presets_version":9})").Get("ok").boolean());
  ASSERT_FALSE(ProductFilters().empty());
  std::string output;
  EXPECT_EQ(RunProduct(L"--remove-filters", output), 0) << output;
  EXPECT_TRUE(ProductFilters().empty());
  EXPECT_TRUE(BootFilters().empty());
  const Json status = Ask(kStatus);
  EXPECT_TRUE(status.Get("ok").boolean());
  EXPECT_FALSE(status.Get("enabled").boolean());
}

TEST_F(Removal, OfTheServiceLeavesNothingInTheEngine) {
  ASSERT_TRUE(SetConfig(R"({"presets_version":9})").Get("ok").boolean());
  ASSERT_FALSE(ProductFilters().empty());
  std::string output;
  EXPECT_EQ(RunProduct(L"--uninstall", output), 0) << output;
  EXPECT_TRUE(Within(10, [] { return ServiceState() == 0; }));
  EXPECT_TRUE(ProductFilters().empty());
  EXPECT_TRUE(BootFilters().empty());
  const EngineSession engine;
  platform::Sublayer sublayer;
  EXPECT_EQ(platform::GetSublayer(engine, SubLayerKey, sublayer), platform::kSublayerNotFound);
  EXPECT_EQ(platform::DeleteProvider(engine, ProviderKey), platform::kProviderNotFound);
}

}  // namespace
}  // namespace kestrelon::check

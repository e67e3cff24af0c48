// A run in the foreground, which ends without a word, and the way out of an emergency.
#include "config/config_store.h"
#include "config/whole_file.h"
#include "tools/check/cases.h"

namespace kestrelon::check {
namespace {

class ForegroundRun : public BareComputer {
 protected:
  void SetUp() override {
    BareComputer::SetUp();
    ASSERT_EQ(StartForeground(run_), platform::kSuccess);
    const Json status = Ask(R"({"cmd":"status"})");
    ASSERT_TRUE(status.Get("enabled").boolean()) << ServiceLog();
    ASSERT_EQ(status.Get("last_error").text(), "");
    filters_ = ProductFilters();
    ASSERT_FALSE(filters_.empty());
  }

  platform::StartedProgram run_;
  std::vector<platform::Filter> filters_;
};

TEST_F(ForegroundRun, LeavesItsFiltersWhenItIsKilled) {
  EXPECT_TRUE(EndProductProcesses());
  EXPECT_EQ(KeysOf(ProductFilters()), KeysOf(filters_));
  EXPECT_EQ(BootFilters().size(), 8u);
}

TEST_F(ForegroundRun, IsFollowedByAnotherOverTheSameFilters) {
  EXPECT_TRUE(EndProductProcesses());
  ASSERT_EQ(StartForeground(run_), platform::kSuccess);
  const Json status = Ask(R"({"cmd":"status"})");
  EXPECT_TRUE(status.Get("enabled").boolean());
  EXPECT_EQ(status.Get("last_error").text(), "");
  EXPECT_EQ(ProductFilters().size(), filters_.size());
}

TEST_F(ForegroundRun, IsUndoneByTheEmergencyRemoval) {
  EXPECT_TRUE(EndProductProcesses());
  std::string output;
  EXPECT_EQ(RunProduct(L"--remove-filters", output), 0);
  EXPECT_NE(output.find("Protection is OFF"), std::string::npos) << output;
  EXPECT_TRUE(ProductFilters().empty());
  EXPECT_TRUE(BootFilters().empty());
  std::string config;
  platform::Code code = platform::kSuccess;
  ASSERT_TRUE(ReadWholeFile(ConfigPath(), 0x100000, config, code)) << code;
  EXPECT_NE(config.find("\"enabled\": false"), std::string::npos);
}

}  // namespace
}  // namespace kestrelon::check

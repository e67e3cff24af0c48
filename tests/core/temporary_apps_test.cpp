#include "core/temporary_apps.h"

#include <gtest/gtest.h>

namespace kestrelon {
namespace {

constexpr std::int64_t kNow = 1'000'000;
constexpr std::int64_t kBoot = 400'000;

TEST(TemporaryApps, EndAtTheirTimeOrWithTheMachinesNextStart) {
  const struct {
    const wchar_t* name;
    std::int64_t expires;
    bool until_reboot;
    std::int64_t added;
    bool ends;
  } cases[] = {
      {L"permanent", 0, false, 0, false},
      {L"expires a step later", kNow + 1, false, 0, false},
      {L"expires now", kNow, false, kNow, true},
      {L"expired long ago", 1, false, 0, true},
      {L"added before the machine started", 0, true, kBoot - 1, true},
      {L"added as the machine started", 0, true, kBoot, false},
      {L"added at an unknown time", 0, true, 0, true},
      {L"expires later, but only until the restart", kNow + 1, true, kBoot - 1, true},
  };
  Config config;
  std::vector<std::wstring> ending;
  std::vector<std::wstring> staying;
  for (const auto& c : cases) {
    AppEntry app;
    app.path = c.name;
    app.expires = c.expires;
    app.until_reboot = c.until_reboot;
    app.added = c.added;
    config.apps.push_back(app);
    (c.ends ? ending : staying).push_back(c.name);
  }
  std::vector<std::wstring> ended;
  for (const AppEntry& app : ExpireTemporaryApps(config, kNow, kBoot)) ended.push_back(app.path);
  std::vector<std::wstring> kept;
  for (const AppEntry& app : config.apps) kept.push_back(app.path);
  EXPECT_EQ(ended, ending);
  EXPECT_EQ(kept, staying);
}

}  // namespace
}  // namespace kestrelon

#include "core/temporary_apps.h"

#include <gtest/gtest.h>

#include "filtering/compile_apps.h"
#include "platform/clock.h"

namespace kestrelon {
namespace {

TEST(TemporaryApps, EndAtTheirTimeOrWithTheMachinesNextStart) {
  const std::int64_t now = platform::SystemTime();
  const std::int64_t boot = BootTime();
  const struct {
    const wchar_t* name;
    std::int64_t expires;
    bool until_reboot;
    std::int64_t added;
    bool ends;
  } cases[] = {
      {L"permanent", 0, false, 0, false},
      {L"expires a step later", now + 1, false, 0, false},
      {L"expires now", now, false, now, true},
      {L"expired long ago", 1, false, 0, true},
      {L"added before the machine started", 0, true, boot - 1, true},
      {L"added as the machine started", 0, true, boot, false},
      {L"added at an unknown time", 0, true, 0, true},
      {L"expires later, but only until the restart", now + 1, true, boot - 1, true},
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
  // An entry that has ended is no permission either while nobody has taken it out.
  GuardLock lock(ConfigGuard);
  FilterPlan plan;
  CompileApps(config, plan);
  std::vector<std::wstring> permitted;
  for (const PlanEntry& entry : plan.entries) permitted.push_back(entry.path);
  EXPECT_EQ(permitted, staying);
  std::vector<std::wstring> ended;
  for (const AppEntry& app : ExpireTemporaryApps(config, now, boot)) ended.push_back(app.path);
  std::vector<std::wstring> kept;
  for (const AppEntry& app : config.apps) kept.push_back(app.path);
  EXPECT_EQ(ended, ending);
  EXPECT_EQ(kept, staying);
}

}  // namespace
}  // namespace kestrelon

// What a look for an update asks for, tells and keeps.
#include "updates/check_update.h"

#include "base/format.h"
#include "base/text.h"
#include "core/version.h"
#include "tests/updates/update_world.h"
#include "updates/update_settings.h"
#include "updates/update_state.h"

namespace kestrelon::test {
namespace {

class CheckUpdate : public UpdateWorld {
 protected:
  std::string Manifest(std::int32_t build, const wchar_t* channel = L"stable") {
    UpdateManifest manifest = Publish({});
    manifest.build = build;
    manifest.channel = channel;
    return TextOf(manifest);
  }

  // What a check adds to service.log, and to activity.log.
  std::wstring Check(bool manual = true) {
    CheckForUpdate(manual);
    EXPECT_FALSE(UpdateSignals.UpdateRuleWanted);
    const std::wstring notes = WideFromUtf8(files.Read(kData + L"\\activity.log").value_or(""));
    files.Remove(kData + L"\\activity.log");
    return TakeLog() + notes.substr(notes.find(L"\t") + 1);
  }

  // What was found, and when.
  static std::string Found() {
    const Json status = UpdateStatus({});
    return status.Get("latest").Dump(false) + status.Get("last_check").Dump(false);
  }
};

TEST_F(CheckUpdate, OffersHigherBuildsOnly) {
  const std::wstring left = kUpdates + L"\\old.exe";
  for (const std::int32_t build : {kBuild + 1, kBuild, kBuild + 2, kBuild - 1}) {
    const bool higher = build > kBuild;
    Announce(Manifest(build));
    files.Write(left, "old");
    EXPECT_EQ(Check(higher),
              higher
                  ? Format(L"Update check (stable, manual): latest 1.2.3 build %d - available\n"
                           L"Kestrelon\tupdate available: Kestrelon 1.2.3 (build %d)\r\n",
                           build, build)
                  : Format(L"Update check (stable, daily): latest 1.2.3 build %d - this version is "
                           L"up to date\nKestrelon\tupdate check: up to date\r\n",
                           build));
    EXPECT_EQ(State(), higher ? L"available: " : L"idle: ");
    const Json status = UpdateStatus({});
    EXPECT_EQ(status.Get("latest").Get("build").integer(), higher ? build : 0);
    EXPECT_EQ(status.Get("last_check").integer(), machine.clock.SystemTime());
    EXPECT_EQ(StoredLastCheck(), machine.clock.SystemTime());
    EXPECT_EQ(files.Exists(left), !higher) << "an offer ends what was downloaded before";
  }
}

TEST_F(CheckUpdate, ThatFailsTellsWhyAndKeepsWhatWasFound) {
  const std::string good = Manifest(kBuild + 1);
  const struct {
    std::function<void()> fault;
    std::wstring told;
  } cases[] = {
      {[&] { machine.http.Serve(kManifestUrl + L".sig", {.status = 503}); }, L"HTTP 503"},
      {[&] { Announce("[]"); }, L"the update manifest is not valid JSON"},
      {[&] { Announce(Manifest(50, L"test")); }, L"the manifest is for another channel (test)"},
  };
  Announce(good);
  Check();
  const std::string found = Found();
  const std::int64_t time = StoredLastCheck();
  for (const auto& [fault, told] : cases) {
    Announce(good);
    fault();
    EXPECT_EQ(Check(), L"Update check failed (stable): " + told +
                           L"\nKestrelon\tupdate check failed: " + told + L"\r\n");
    EXPECT_EQ(State(), L"error: " + told);
    EXPECT_EQ(Found(), found);
    EXPECT_EQ(StoredLastCheck(), time);
  }
}

TEST_F(CheckUpdate, AsksForTheTestChannelByItsExactNameOnly) {
  for (const wchar_t* const channel : {L"test", L"Test", L"test ", L"", L"stable"}) {
    machine.registry.SetText(L"SOFTWARE\\Kestrelon", L"UpdateChannel", channel);
    Check();
    EXPECT_EQ(machine.http.Requests().back().url,
              channel == std::wstring(L"test") ? L"https://localhost:28444/update/test/latest.json"
                                               : kManifestUrl);
  }
}

}  // namespace
}  // namespace kestrelon::test

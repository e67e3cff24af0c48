// An installation from the manifest to the installer's end, and everything that may be wrong on the
// way. The sweep over all steps has what is left when the power goes.
#include "updates/install_update.h"

#include "core/error_text.h"
#include "tests/updates/update_world.h"
#include "updates/check_update.h"
#include "updates/report_install.h"
#include "updates/update_settings.h"
#include "updates/update_state.h"

namespace kestrelon::test {
namespace {

const std::wstring kAttempted =
    L"error: the update to 1.2.3 was not installed: the installer ended with code ";
const std::wstring kOtherHash =
    L"error: the downloaded file does not match the signed list of versions (SHA-256)";
const std::wstring kOtherVersion = L"error: the installer is not version 1.2.3 (build 49)";
const std::vector<std::wstring> kNothing;

std::string With(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

class InstallUpdate : public UpdateWorld {
 protected:
  void Serve(const std::wstring& url, const std::string& body) {
    machine.http.Serve(url, {.body = body});
  }
  void Redirect(const std::wstring& url, const std::string& body) {
    Serve(L"https://elsewhere.test/", body);
    machine.http.Serve(url, {.redirect = L"https://elsewhere.test/"});
  }
  std::vector<std::wstring> LeftBehind() const {
    std::vector<std::wstring> names = files.Names(kUpdates);
    std::erase(names, L"KestrelonSvc-update.exe");
    return names;
  }
};

TEST_F(InstallUpdate, RunsWhatWasPublishedOnceItsOutcomeCanBeTold) {
  const UpdateManifest manifest = Publish();
  for (const bool job : {false, true}) {
    machine.processes.ForbidBreakaway(job);
    StoreHelperExit(9001);  // by somebody who tried out the helper
    std::uint32_t helper = 0;
    before_helper = [&] {
      helper = machine.processes.Running(kHelper, 0).at(0);
      const PendingInstall pending = StoredPendingInstall().value();
      EXPECT_EQ(pending.build, 49U);
      EXPECT_EQ(pending.version, L"1.2.3");
      EXPECT_EQ(pending.time, machine.clock.SystemTime());
      EXPECT_EQ(pending.session, 1U);
      EXPECT_FALSE(StoredHelperExit());
    };
    InstallThread(manifest, 1, L"SK");
    EXPECT_EQ(State(), L"installing: ");
    EXPECT_EQ(Copy().progress, 100);
    EXPECT_EQ(machine.processes.Find(helper).value().flags, job ? 0x8000000U : 0x9000000U);
    EXPECT_EQ(machine.processes.Find(helper).value().directory, kUpdates);
    EXPECT_TRUE(Logged(L"Installing update 1.2.3 build 49 (verified: SHA-256 " + manifest.sha256 +
                           L", signed by TARGON HELVERIK Ltd. Co.)",
                       L"installing update: Kestrelon 1.2.3 (build 49), verified"));
  }
  EXPECT_EQ(executed, std::vector<std::string>(2, "version 1.2.3"));
}

TEST_F(InstallUpdate, CleansTheLanguageForACommandLine) {
  EXPECT_EQ(CleanLanguage(L"sk;calc") + CleanLanguage(L"\" /X"), L"skcalcx");
  EXPECT_EQ(CleanLanguage(L"ABCDEFGH"), L"abcdefgh");
  for (const wchar_t* const none : {L"", L"123", L"abcdefghi", L"\u013e"}) {
    EXPECT_EQ(CleanLanguage(none), L"en") << none;
  }
}

TEST_F(InstallUpdate, EndsWhereALinkOfTheChainIsBrokenOrTheUpdaterIsAttacked) {
  const std::string real = TextOf(Publish());
  const auto announce_with = [&](const char* from, const char* to) {
    return [=, this] { Announce(With(real, from, to)); };
  };
  const auto publish = [this](const Installer& installer) {
    return [=, this] { Announce(TextOf(Publish(installer))); };
  };
  const struct {
    const char* attack;
    std::function<void()> prepare;
    std::wstring told;
  } cases[] = {
      {"redirect of the manifest", [&] { Redirect(kManifestUrl, real); }, L"error: HTTP 302"},
      {"endless manifest", [&] { Serve(kManifestUrl, std::string(65537, ' ')); },
       L"error: the file is larger than expected"},
      {"changed manifest", [&] { Serve(kManifestUrl, real + "\n"); },
       L"error: the manifest signature is not valid"},
      {"mix and match", [&] { Announce(With(real, "49", "47")), Serve(kManifestUrl, real); },
       L"error: the manifest signature is not valid"},
      {"withdrawn key", [&] { Announce(real, "kestrelon-update-2025"); },
       L"error: the manifest is signed with an unknown key"},
      {"wrong software", announce_with("\"Kestrelon", "\"Otherware"),
       L"error: the manifest is not for Kestrelon"},
      {"another host", announce_with("localhost", "elsewhere"),
       L"error: the installer address is not on https://localhost:28444/"},
      {"rollback", announce_with("49", "47"), L"idle: "},
      {"freeze", announce_with("49", "48"), L"idle: "},
      {"redirect of the installer", [&] { Redirect(kSetupUrl, "version 1.2.3"); },
       L"error: download failed: HTTP 302"},
      {"endless installer",
       [&] { machine.http.Serve(kSetupUrl, {.body = std::string(99, 'x'), .chunked = true}); },
       L"error: download failed: the file is larger than expected"},
      {"installer in the helper's place", announce_with("setup", "kestrelonsvc-UPDATE"),
       L"error: cannot create " + kUpdates + L"\\kestrelonsvc-UPDATE.exe.part"},
      {"another installer", [&] { Serve(kSetupUrl, "VERSION 1.2.3"); }, kOtherHash},
      {"no publisher", publish({.content = "unsigned", .signer = L""}),
       L"error: the installer has no valid digital signature of TARGON HELVERIK Ltd. Co."},
      {"another publisher", publish({.content = "foreign", .signer = L"Targon"}),
       L"error: the installer is signed by Targon, not by TARGON HELVERIK Ltd. Co."},
      {"swapped while it is checked",
       [&] { machine.faults.RunBefore("RenameFile", [&] { Put(kSetup + L".part", {"x"}); }); },
       L"error: the installer changed while it was being checked"},
      {"another version", publish({.content = "1.3.2", .version = {1, 3, 2, 49}}), kOtherVersion},
      {"another build", publish({.content = "50", .version = {1, 2, 3, 50}}), kOtherVersion},
      {"swapped between check and run",
       [&] { before_helper = [&] { Put(kSetup, {.content = "evil", .signer = L"me"}); }; },
       kAttempted + L"9001"},
      {"taken away between check and run", [&] { before_helper = [&] { files.Remove(kSetup); }; },
       kAttempted + L"9001"},
  };
  const auto update = [] {
    CheckForUpdate(true);
    return State() == L"available: " ? Install(Copy().latest) : State();
  };
  for (const auto& [attack, prepare, told] : cases) {
    SCOPED_TRACE(attack);
    Publish();
    Announce(real);
    before_helper = [] {};
    prepare();
    EXPECT_EQ(update(), told);
    EXPECT_TRUE(executed.empty());
    EXPECT_FALSE(StoredPendingInstall() || UpdateSignals.UpdateRuleWanted);
    if (told == kAttempted + L"9001") FinishPastInstall();  // clears what others put there
    EXPECT_EQ(LeftBehind(), kNothing);
  }
  UpdateManifest same = Publish({.content = "48", .version = {1, 2, 3, 48}});
  same.build = 48;
  EXPECT_EQ(Install(same), L"error: an older or the same version is never installed");
  EXPECT_EQ(LeftBehind(), kNothing);
  before_helper = [] {};
  EXPECT_EQ(Install(Publish()), kAttempted + L"0") << "it can be tried again, and runs";
}

TEST_F(InstallUpdate, TellsWhatFailedAndKeepsOnlyWhatHasThePublishedHash) {
  const UpdateManifest manifest = Publish();
  const std::wstring no_memory = ErrorText(8);
  const struct {
    const char* call;
    std::wstring told;
    std::vector<std::wstring> left;
  } cases[] = {
      {"OpenFile", L"cannot create " + kSetup + L".part", {}},
      {"WriteFileBytes", L"download failed: cannot save the file", {}},
      {"Sha256::Finish", kOtherHash.substr(7), {}},
      {"FileSize", kOtherHash.substr(7), {}},
      {"RenameFile", L"cannot rename the download: " + no_memory, {L"setup.exe.part"}},
      {"DuplicateFile", L"cannot prepare the installation: " + no_memory, {L"setup.exe"}},
      {"DeleteRegistryValue", L"cannot start the installation: " + no_memory, {L"setup.exe"}},
      {"StartProgram", L"cannot start the installation: " + no_memory, {L"setup.exe"}},
  };
  for (const auto& [call, told, left] : cases) {
    SCOPED_TRACE(call);
    files.Write(kUpdates + L"\\old.exe", "of an attempt before");
    machine.faults.FailOnce(call, 8);
    EXPECT_EQ(Install(manifest), L"error: " + told);
    EXPECT_TRUE(Logged(L"Update to 1.2.3 build 49 NOT installed: " + told,
                       L"update NOT installed: " + told));
    EXPECT_FALSE(StoredPendingInstall() || UpdateSignals.UpdateRuleWanted);
    EXPECT_EQ(LeftBehind(), left);
  }
  machine.faults.RunBefore("DuplicateFile", [] { UpdateSignals.stop = true; });
  EXPECT_EQ(Install(manifest), L"error: the service is stopping");
  EXPECT_TRUE(executed.empty() && !StoredPendingInstall());
}

}  // namespace
}  // namespace kestrelon::test

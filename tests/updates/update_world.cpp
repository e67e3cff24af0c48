#include "tests/updates/update_world.h"

#include "base/format.h"
#include "base/text.h"
#include "simulation/machine/digest.h"
#include "updates/apply_update.h"
#include "updates/install_update.h"
#include "updates/report_install.h"
#include "updates/update_state.h"

namespace kestrelon::test {

UpdateMachine::UpdateMachine() {
  files.MakeDirectories(kData);
  files.Write(kServiceFile, "version 1.2.2");
  AddService(4);
  UpdateSignals.UpdateRuleInstalled = true;
  machine.processes.OnStart(kHelper, [this](std::uint32_t id) {
    EXPECT_EQ(machine.processes.Find(id)->command_line,
              Format(L"\"%s\" --apply-update \"%s\" sk", kHelper, kSetup));
    before_helper();
    machine.processes.End(id, static_cast<std::uint32_t>(ApplyUpdateHelper(kSetup, L"sk")));
  });
  machine.processes.OnStart(kSetup, [this](std::uint32_t id) {
    executed.push_back(files.Read(kSetup).value());
    during_setup();
    machine.processes.End(id, setup_exit);
  });
}

void UpdateMachine::AddService(std::uint32_t state) {
  simulation::Service service;
  service.name = L"KestrelonSvc";
  service.binary_path = L"\"" + kServiceFile + L"\"";
  service.state = state;
  machine.services.Add(service);
}

void UpdateMachine::Put(const std::wstring& path, const Installer& installer) {
  files.Write(path, installer.content);
  if (!installer.signer.empty()) files.Sign(path, installer.signer);
  const auto& [major, minor, patch, build] = installer.version;
  std::vector<std::uint8_t> block = {0xBD,  0x04, 0xEF,  0xFE, 0,     0, 1,     0,
                                     minor, 0,    major, 0,    build, 0, patch, 0};
  block.resize(52);
  files.SetVersion(path, L"\\", block);
  files.SpreadProperties(path);
}

UpdateManifest UpdateMachine::Publish(const Installer& installer) {
  Put(L"D:\\vendor\\setup.exe", installer);
  machine.http.Serve(kSetupUrl, {.body = installer.content, .chunk = 4});
  const std::vector<std::uint8_t> hash = simulation::DigestOf(L"SHA256", installer.content);
  const auto size = static_cast<std::int64_t>(installer.content.size());
  return {L"stable", L"1.2.3", 49, L"", kSetupUrl, size, HexText(hash.data(), hash.size()),
          L"",       L""};
}

std::string UpdateMachine::TextOf(const UpdateManifest& manifest) {
  return Utf8FromWide(
      Format(LR"({"format":1,"product":"Kestrelon","channel":"%s","version":"%s","build":%d,)"
             LR"("url":"%s","size":%lld,"sha256":"%s"})",
             manifest.channel, manifest.version, manifest.build, manifest.url, manifest.size,
             manifest.sha256));
}

void UpdateMachine::Announce(const std::string& manifest, const char* key) {
  machine.http.Serve(kManifestUrl, {.body = manifest});
  machine.http.Serve(kManifestUrl + L".sig", {.body = SignManifest(manifest, key)});
}

std::wstring UpdateMachine::Install(const UpdateManifest& manifest) {
  InstallThread(manifest, 1, L"S-k");
  if (State() == L"installing: ") ReportInstallOutcome(false);
  return State();
}

std::wstring UpdateMachine::State() {
  return Copy().state + L": " + Copy().message;
}

UpdateState UpdateMachine::Copy() {
  GuardLock lock(UpdateGuard);
  return Update;
}

std::wstring UpdateMachine::TakeLog() {
  constexpr std::size_t kStampLength = 21;  // "YYYY-MM-DD hh:mm:ss" and two blanks
  const std::wstring path = kData + L"\\service.log";
  const std::wstring text = WideFromUtf8(files.Read(path).value_or(""));
  std::wstring messages;
  for (const std::wstring_view line : SplitAt(text, L"\n")) {
    if (line.empty()) continue;
    messages += std::wstring(Trim(line.substr(kStampLength))) + L"\n";
  }
  files.Remove(path);
  return messages;
}

bool UpdateMachine::Logged(const std::wstring& service, const std::wstring& activity) {
  const auto ends = [this](const wchar_t* name, const std::wstring& message) {
    return files.Read(kData + name).value_or("").ends_with(Utf8FromWide(message) + "\r\n");
  };
  return ends(L"\\service.log", L"  " + service) &&
         ends(L"\\activity.log", L"\tKestrelon\t" + activity);
}

void UpdateWorld::TearDown() {
  machine.faults.Clear();
  EXPECT_EQ(files.open_handles() + machine.services.open_handles() +
                machine.processes.open_handles() + machine.sessions.open_handles(),
            0U);
}

}  // namespace kestrelon::test

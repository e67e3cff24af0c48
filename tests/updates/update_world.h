// A vendor who publishes installers, and the machine on which they and the helper run.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "simulation/machine/machine.h"
#include "tests/updates/signing.h"
#include "updates/update_state.h"

namespace kestrelon::test {

inline const std::wstring kData = L"C:\\ProgramData\\Kestrelon";
inline const std::wstring kUpdates = kData + L"\\update";
inline const std::wstring kSetup = kUpdates + L"\\setup.exe";
inline const std::wstring kHelper = kUpdates + L"\\KestrelonSvc-update.exe";
inline const std::wstring kServiceFile = L"C:\\Program Files\\Kestrelon\\KestrelonSvc.exe";
inline const std::wstring kManifestUrl = L"https://localhost:28444/update/latest.json";
inline const std::wstring kSetupUrl = L"https://localhost:28444/setup.exe";
inline const std::wstring kRegistryKey = L"SOFTWARE\\Kestrelon\\Update";

// What is in an installer, who signed it (nobody if empty), the words of its file version.
struct Installer {
  std::string content = "version 1.2.3";
  std::wstring signer = L"TARGON HELVERIK Ltd. Co.";
  std::array<std::uint8_t, 4> version = {1, 2, 3, 49};
};

class UpdateMachine {
 public:
  UpdateMachine();

  // Registers the service anew in a state.
  void AddService(std::uint32_t state);

  // Puts an installer onto the disk; what has the same content later is the same installer.
  void Put(const std::wstring& path, const Installer& installer);

  // Serves an installer, and gives the manifest that names it as version 1.2.3, build 49.
  UpdateManifest Publish(const Installer& installer = {});
  static std::string TextOf(const UpdateManifest& manifest);
  // Serves a manifest with a signature of it.
  void Announce(const std::string& manifest, const char* key = kFirstKey);

  // Installs for session 1: the helper and the installer run, and the outcome is told as by a
  // service that was not stopped. Gives "state: message".
  static std::wstring Install(const UpdateManifest& manifest);
  static std::wstring State();
  static UpdateState Copy();  // of the state as a whole

  // The messages of service.log since the last call, each closed by a line feed.
  std::wstring TakeLog();
  // Whether service.log and activity.log end in these messages.
  bool Logged(const std::wstring& service, const std::wstring& activity);

  // What happens before the helper does anything, and what an installer does before it ends.
  std::function<void()> before_helper = [] {};
  std::function<void()> during_setup = [] {};
  std::uint32_t setup_exit = 0;
  std::vector<std::string> executed;  // contents of whatever ran as an installer

  simulation::Machine& machine = simulation::TheMachine();
  simulation::FileSystem& files = machine.files;
};

// A fixture around one.
class UpdateWorld : public testing::Test, protected UpdateMachine {
 protected:
  void TearDown() override;
};

}  // namespace kestrelon::test

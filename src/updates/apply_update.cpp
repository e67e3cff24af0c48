#include "updates/apply_update.h"

#include "base/format.h"
#include "core/own_service.h"
#include "identity/file_identity.h"
#include "identity/paths.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/processes.h"
#include "platform/system_text.h"
#include "updates/install_update.h"
#include "updates/installer_name.h"
#include "updates/update_directory.h"
#include "updates/update_settings.h"
#include "updates/verify_installer.h"

namespace kestrelon {
namespace {

constexpr std::uint32_t kInstallerTimeoutMs = 1800000;
constexpr int kStartAttempts = 30;
constexpr std::uint32_t kStartIntervalMs = 2000;

// Whether a path is written as that of a file right in the directory of updates.
bool NamesInstaller(const std::wstring& path) {
  const std::wstring directory = platform::LowerCase(UpdateDirectory()) + L"\\";
  const std::wstring lower = platform::LowerCase(path);
  return lower.starts_with(directory) && IsInstallerName(lower.substr(directory.size()));
}

// Whether it leads to that file and, behind links, to no other.
bool LeadsWhereItSays(const std::wstring& path) {
  const std::wstring expected = NormalizePath(UpdateDirectory()) + L"\\" + FileNamePart(path);
  return platform::EqualIgnoringCase(NormalizePath(path), expected);
}

// Tests the installer. While `hold` is open, what was tested can't be written to, replaced or moved
// away before it runs.
bool IsAcceptable(const std::wstring& path, platform::File& hold) {
  if (!NamesInstaller(path)) return false;
  const platform::Code code =
      platform::OpenFile(path, platform::kGenericRead, platform::kShareRead,
                         platform::kOpenExisting, platform::kNormalFile, hold);
  return code == platform::kSuccess && LeadsWhereItSays(path) &&
         IsSignedByPublisher(IdentityFor(path));
}

platform::ProgramStart InstallerStart(const std::wstring& path, const std::wstring& language) {
  const std::wstring directory = UpdateDirectory();
  platform::ProgramStart start;
  start.application = path;
  start.command_line =
      Format(L"\"%s\" /VERYSILENT /SUPPRESSMSGBOXES /NORESTART /NOCANCEL /LANG=%s /LOG=\"%s\\%s\"",
             path, CleanLanguage(language), directory, kInstallLogName);
  start.directory = directory;
  start.flags = platform::kNoWindow;
  return start;
}

// The installer's exit code, or the helper's own result.
std::uint32_t RunInstaller(const platform::ProgramStart& start) {
  platform::StartedProgram installer;
  if (platform::StartProgram(start, installer) != platform::kSuccess) return kHelperCannotStart;
  std::uint32_t exit_code = 0;
  if (platform::AwaitProcess(installer.process, kInstallerTimeoutMs) != platform::kSuccess ||
      platform::ProcessExitCode(installer.process, exit_code) != platform::kSuccess) {
    return kHelperNoExitCode;
  }
  return exit_code;
}

// An installer that has just ended may still have the service on its way down.
void StartServiceAgain() {
  for (int attempt = 1; !StartOwnService() && attempt < kStartAttempts; ++attempt) {
    platform::SleepMilliseconds(kStartIntervalMs);
  }
}

}  // namespace

int ApplyUpdateHelper(const std::wstring& installer_path, const std::wstring& language) {
  platform::File hold;
  if (!IsAcceptable(installer_path, hold)) {
    StoreHelperExit(kHelperRefused);
    (void)StartOwnService();
    return static_cast<int>(kHelperRefused);
  }
  const std::uint32_t result = RunInstaller(InstallerStart(installer_path, language));
  StoreHelperExit(result);
  StartServiceAgain();
  return static_cast<int>(result);
}

}  // namespace kestrelon

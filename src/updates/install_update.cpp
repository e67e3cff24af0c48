// An installation is a row of steps over one record. What survives the service is prepared only
// when the installer has passed every proof: a copy of the service that runs it, and the registry's
// note by which the next start tells how it went.
#include "updates/install_update.h"

#include "base/format.h"
#include "base/text.h"
#include "core/error_text.h"
#include "core/service_log.h"
#include "events/activity_log.h"
#include "identity/paths.h"
#include "platform/clock.h"
#include "platform/crypto.h"
#include "platform/files.h"
#include "platform/processes.h"
#include "updates/installer_name.h"
#include "updates/update_directory.h"
#include "updates/update_settings.h"
#include "updates/update_state.h"
#include "updates/update_traffic.h"
#include "updates/update_transfer.h"
#include "updates/verify_installer.h"

namespace kestrelon {
namespace {

// One installation on its way.
struct Installation {
  const UpdateManifest& manifest;
  std::uint32_t session = kNoSession;
  std::wstring language;
  std::wstring directory;
  std::wstring helper;
  Download download;
};

// A download while it comes in: written and hashed piece by piece.
struct Incoming {
  platform::File file;
  platform::Sha256 hash;
  std::uint64_t size = 0;  // bytes so far
};

bool Take(Incoming& incoming, const void* bytes, std::uint32_t size) {
  std::uint32_t written = 0;
  if (platform::WriteFileBytes(incoming.file, bytes, size, written) != platform::kSuccess) {
    return false;
  }
  incoming.size += written;
  return written == size && incoming.hash.Add(bytes, size) == platform::kSuccess;
}

void ShowProgress(std::int64_t received, std::int64_t size) {
  const auto percent = static_cast<std::int32_t>(received * 100 / size);
  GuardLock lock(UpdateGuard);
  if (Update.progress == percent) return;
  Update.progress = percent;
  UpdateSignals.UpdateStatusChanged = true;
}

// The hash of a whole file that came in; empty, which equals no hash, if it can't be told or the
// file is not as long as what was hashed.
std::wstring FinishHash(Incoming& incoming) {
  platform::Sha256Digest digest{};
  std::uint64_t size = 0;
  if (incoming.hash.Finish(digest) != platform::kSuccess ||
      platform::FileSize(incoming.file, size) != platform::kSuccess || size != incoming.size) {
    return {};
  }
  return HexText(digest.data(), digest.size());
}

std::wstring CreatePart(const Download& download, Incoming& incoming) {
  if (!IsInstallerName(FileNamePart(download.path)) ||
      platform::OpenFile(download.part, platform::kGenericWrite, platform::kShareNone,
                         platform::kCreateAlways, platform::kNormalFile,
                         incoming.file) != platform::kSuccess) {
    return L"cannot create " + download.part;
  }
  return {};
}

// Never takes more than the signed size.
std::wstring Receive(Installation& installation, Incoming& incoming) {
  const UpdateManifest& manifest = installation.manifest;
  // A hash that could not begin takes nothing: the transfer ends with its first piece.
  (void)incoming.hash.Begin();
  std::wstring error;
  const bool whole = HttpGet(
      manifest.url, manifest.size,
      [&incoming](const void* bytes, std::uint32_t size) { return Take(incoming, bytes, size); },
      [&manifest](std::int64_t received, std::int64_t) { ShowProgress(received, manifest.size); },
      error);
  installation.download.sha256 = FinishHash(incoming);
  incoming.file.Close();
  if (whole) return {};
  (void)platform::RemoveFile(installation.download.part);
  return L"download failed: " + error;
}

// The steps. Each gives the sentence of what ends the installation; empty when it goes on.

std::wstring MakeRoom(Installation& installation) {
  // What is wrong with the directory shows when a file is created in it.
  (void)platform::MakeDirectory(installation.directory);
  CleanUpdateDirectory();
  return {};
}

std::wstring DownloadInstaller(Installation& installation) {
  SetUpdateState(kUpdateDownloading, L"");
  NeedUpdateTraffic();
  Incoming incoming;
  std::wstring problem = CreatePart(installation.download, incoming);
  if (problem.empty()) problem = Receive(installation, incoming);
  EndUpdateTraffic();
  return problem;
}

std::wstring Verify(Installation& installation) {
  SetUpdateState(kUpdateVerifying, L"");
  std::wstring problem;
  (void)VerifyInstaller(installation.download, installation.manifest, problem);
  return problem;
}

// The service's own executable is replaced while the helper runs.
std::wstring CopyHelper(Installation& installation) {
  if (const platform::Code code = platform::DuplicateFile(ExecutablePath(), installation.helper)) {
    return L"cannot prepare the installation: " + ErrorText(code);
  }
  return {};
}

// The last moment to heed a stop. A machine that shuts down would cut the installer off in its
// middle, and a service that is being uninstalled is not to come back with it.
std::wstring HeedStop(Installation&) {
  return UpdateSignals.stop ? L"the service is stopping" : L"";
}

std::wstring NotePending(Installation& installation) {
  const PendingInstall pending{static_cast<std::uint32_t>(installation.manifest.build),
                               installation.manifest.version, platform::SystemTime(),
                               installation.session};
  if (const platform::Code code = StorePendingInstall(pending)) {
    ForgetPendingInstall();
    return L"cannot start the installation: " + ErrorText(code);
  }
  return {};
}

std::wstring StartHelper(Installation& installation) {
  platform::ProgramStart start;
  start.application = installation.helper;
  start.command_line = Format(L"\"%s\" --apply-update \"%s\" %s", installation.helper,
                              installation.download.path, CleanLanguage(installation.language));
  start.directory = installation.directory;
  start.flags = platform::kBreakawayFromJob | platform::kNoWindow;
  platform::StartedProgram started;
  platform::Code code = platform::StartProgram(start, started);
  if (code == platform::kAccessDenied) {
    // A job that the service runs in may forbid to leave it.
    start.flags = platform::kNoWindow;
    code = platform::StartProgram(start, started);
  }
  if (code == platform::kSuccess) return {};
  ForgetPendingInstall();
  return L"cannot start the installation: " + ErrorText(code);
}

using Step = std::wstring (*)(Installation& installation);
constexpr Step kSteps[] = {&MakeRoom, &DownloadInstaller, &Verify,     &CopyHelper,
                           &HeedStop, &NotePending,       &StartHelper};

void TellFailure(const UpdateManifest& manifest, const std::wstring& problem) {
  LogService(L"Update to %s build %d NOT installed: %s", manifest.version, manifest.build, problem);
  ActivityNote(L"update NOT installed: " + problem);
  SetUpdateState(kUpdateError, problem);
}

void TellSuccess(const Installation& installation) {
  const UpdateManifest& manifest = installation.manifest;
  LogService(L"Installing update %s build %d (verified: SHA-256 %s, signed by %s)",
             manifest.version, manifest.build, installation.download.sha256, kInstallerPublisher);
  ActivityNote(Format(L"installing update: Kestrelon %s (build %d), verified", manifest.version,
                      manifest.build));
  SetUpdateState(kUpdateInstalling, L"");
}

// The sentence of the step that failed; empty when the helper is at work.
std::wstring Install(Installation& installation) {
  for (const Step step : kSteps) {
    if (std::wstring problem = step(installation); !problem.empty()) return problem;
  }
  return {};
}

}  // namespace

void InstallThread(const UpdateManifest& manifest, std::uint32_t session,
                   const std::wstring& language) {
  Installation installation{manifest, session, language, UpdateDirectory(), {}, {}};
  installation.helper = installation.directory + L"\\" + kUpdateHelperName;
  installation.download.path = installation.directory + L"\\" + InstallerName(manifest.url);
  installation.download.part = installation.download.path + L".part";

  const std::wstring problem = Install(installation);
  if (problem.empty()) {
    TellSuccess(installation);
  } else {
    TellFailure(manifest, problem);
  }
}

std::wstring CleanLanguage(const std::wstring& language) {
  constexpr std::size_t kLongest = 8;
  std::wstring letters;
  for (const wchar_t c : language) {
    if (c >= L'a' && c <= L'z') letters += c;
    if (c >= L'A' && c <= L'Z') letters += static_cast<wchar_t>(c - L'A' + L'a');
  }
  return letters.empty() || letters.size() > kLongest ? L"en" : letters;
}

}  // namespace kestrelon

#include "modules/find_in_session.h"

#include <string>
#include <utility>
#include <vector>

#include "identity/paths.h"
#include "platform/processes.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

// To see what it is and that it has ended, and to end it.
constexpr std::uint32_t kSupervise =
    platform::kProcessSynchronize | platform::kProcessQueryLimited | platform::kProcessTerminate;

bool RunsInSession(std::uint32_t process_id, std::uint32_t session) {
  std::uint32_t own_session = 0;
  return platform::SessionOfProcess(process_id, own_session) == platform::kSuccess &&
         own_session == session;
}

// Opens a process; false when that is refused or it is one of another file.
bool OpenProcessOf(const std::wstring& path, std::uint32_t process_id, platform::Process& process) {
  std::wstring image;
  return platform::OpenProcessById(process_id, kSupervise, process) == platform::kSuccess &&
         platform::ProcessImage(process, image) == platform::kSuccess &&
         platform::EqualIgnoringCase(image, path);
}

}  // namespace

bool FindInSession(const ModuleStatus& status, std::uint32_t session, ModuleProcess& record) {
  std::vector<platform::RunningProcess> running;
  if (platform::ListProcesses(running) != platform::kSuccess) return false;
  const std::wstring executable = FileNamePart(status.path);
  for (const platform::RunningProcess& candidate : running) {
    platform::Process process;
    if (platform::EqualIgnoringCase(candidate.executable, executable) &&
        RunsInSession(candidate.id, session) && OpenProcessOf(status.path, candidate.id, process)) {
      record = {status.id, session, candidate.id, std::move(process), status.manifest.permissions};
      return true;
    }
  }
  return false;
}

}  // namespace kestrelon

#include "updates/reopen_window.h"

#include <atomic>
#include <utility>

#include "core/error_text.h"
#include "core/service_log.h"
#include "identity/paths.h"
#include "platform/sessions.h"
#include "updates/update_settings.h"

namespace kestrelon {
namespace {

// Atomic because the start and the loop may run on different threads.
std::atomic<std::uint32_t> RequestedSession = kNoSession;

// The window was open with the user's full rights before the update and returns with them; should
// they not be had, with fewer.
void UseFullToken(platform::UserToken& user) {
  std::uint32_t type = 0;
  if (platform::QueryTokenElevation(user, type) != platform::kSuccess ||
      type != platform::kElevationLimited) {
    return;
  }
  platform::UserToken linked;
  if (platform::QueryLinkedToken(user, linked) == platform::kSuccess) user = std::move(linked);
}

platform::ProgramStart WindowStart() {
  platform::ProgramStart start;
  start.directory = ExecutableDirectory();
  start.application = start.directory + L"\\Kestrelon.exe";
  start.command_line = L"\"" + start.application + L"\" --updated";
  start.desktop = L"winsta0\\default";
  start.flags = platform::kUnicodeEnvironment;
  return start;
}

}  // namespace

void ReopenWindow(std::uint32_t session) {
  platform::UserToken user;
  if (platform::QuerySessionUser(session, user) != platform::kSuccess) return;
  UseFullToken(user);
  // The window does without its user's variables if need be.
  platform::UserEnvironment environment;
  (void)platform::MakeUserEnvironment(user, environment);

  platform::StartedProgram started;
  if (const platform::Code code =
          platform::StartAsUser(user, environment, WindowStart(), started)) {
    LogService(L"Cannot reopen the Kestrelon window after the update: %s", ErrorText(code));
  } else {
    LogService(L"Reopened the Kestrelon window in session %u after the update", session);
  }
}

void RequestReopen(std::uint32_t session) {
  RequestedSession = session;
}

void ReopenRequestedWindow() {
  const std::uint32_t session = RequestedSession.exchange(kNoSession);
  if (session != kNoSession) ReopenWindow(session);
}

}  // namespace kestrelon

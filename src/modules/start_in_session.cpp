#include "modules/start_in_session.h"

#include <utility>

#include "core/error_text.h"
#include "platform/sessions.h"

namespace kestrelon {
namespace {

platform::ProgramStart StartOf(const std::wstring& path) {
  platform::ProgramStart start;
  start.application = path;
  // Tells the module who started it.
  start.command_line = L"\"" + path + L"\" --from-service";
  start.directory = path.substr(0, path.rfind(L'\\'));
  start.desktop = L"winsta0\\default";
  start.flags = platform::kUnicodeEnvironment | platform::kNewProcessGroup;
  return start;
}

}  // namespace

bool StartInSession(const ModuleStatus& status, std::uint32_t session, ModuleProcess& record,
                    std::wstring& error) {
  platform::UserToken user;
  if (const platform::Code code = platform::QuerySessionUser(session, user)) {
    error = L"no user token: " + ErrorText(code);
    return false;
  }
  // Without its user's variables a module still does most of its work.
  platform::UserEnvironment environment;
  (void)platform::MakeUserEnvironment(user, environment);

  platform::StartedProgram started;
  if (const platform::Code code =
          platform::StartAsUser(user, environment, StartOf(status.path), started)) {
    error = ErrorText(code);
    return false;
  }
  record = {status.id, session, started.process_id, std::move(started.process),
            status.manifest.permissions};
  return true;
}

}  // namespace kestrelon

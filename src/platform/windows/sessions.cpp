#include "platform/sessions.h"

#include "platform/windows/owned.h"

#include <userenv.h>
#include <wtsapi32.h>

namespace kestrelon::platform {
namespace {

void FreeSessionList(WTS_SESSION_INFOW* list) {
  WTSFreeMemory(list);
}

using SessionList = Owned<WTS_SESSION_INFOW*, FreeSessionList>;

HANDLE Native(const UserToken& token) {
  return reinterpret_cast<HANDLE>(token.handle());
}

}  // namespace

Code ListSessions(std::vector<Session>& sessions) {
  SessionList list;
  DWORD count = 0;
  if (!WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, list.Receive(), &count)) {
    return GetLastError();
  }
  sessions.clear();
  // Wine answers with no list and a count of 0.
  for (DWORD i = 0; i < count; ++i) {
    const WTS_SESSION_INFOW& session = list.get()[i];
    sessions.push_back({session.SessionId, static_cast<std::uint32_t>(session.State)});
  }
  return kSuccess;
}

void CloseUserToken(std::uintptr_t token) {
  CloseHandle(reinterpret_cast<HANDLE>(token));
}

Code QuerySessionUser(std::uint32_t session, UserToken& token) {
  HANDLE handle = nullptr;
  if (!WTSQueryUserToken(session, &handle)) return GetLastError();
  token.Adopt(reinterpret_cast<std::uintptr_t>(handle));
  return kSuccess;
}

void CloseUserEnvironment(std::uintptr_t environment) {
  DestroyEnvironmentBlock(reinterpret_cast<void*>(environment));
}

Code MakeUserEnvironment(const UserToken& token, UserEnvironment& environment) {
  // Without a token the platform would give the system's variables alone.
  if (!token.is_open()) return kInvalidHandle;
  void* block = nullptr;
  if (!CreateEnvironmentBlock(&block, Native(token), FALSE)) return GetLastError();
  environment.Adopt(reinterpret_cast<std::uintptr_t>(block));
  return kSuccess;
}

Code StartAsUser(const UserToken& token, const UserEnvironment& environment,
                 const ProgramStart& start, StartedProgram& started) {
  // Without a token the platform would start the program as this process's own account.
  if (!token.is_open()) return kInvalidHandle;
  // The call may write into the command line.
  std::wstring command_line = start.command_line;
  std::wstring desktop = start.desktop;
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.lpDesktop = desktop.data();
  PROCESS_INFORMATION made{};
  if (!CreateProcessAsUserW(Native(token), start.application.c_str(), command_line.data(), nullptr,
                            nullptr, FALSE, start.flags,
                            reinterpret_cast<void*>(environment.handle()), start.directory.c_str(),
                            &startup, &made)) {
    return GetLastError();
  }
  CloseHandle(made.hThread);
  started.process_id = made.dwProcessId;
  started.process.Adopt(reinterpret_cast<std::uintptr_t>(made.hProcess));
  return kSuccess;
}

}  // namespace kestrelon::platform

#include "platform/sessions.h"

#include "platform/windows/owned.h"
#include "platform/windows/start_program.h"

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

Code QueryTokenElevation(const UserToken& token, std::uint32_t& type) {
  TOKEN_ELEVATION_TYPE found{};
  DWORD size = 0;
  if (!GetTokenInformation(Native(token), TokenElevationType, &found, sizeof found, &size)) {
    return GetLastError();
  }
  type = static_cast<std::uint32_t>(found);
  return kSuccess;
}

Code QueryLinkedToken(const UserToken& token, UserToken& linked) {
  TOKEN_LINKED_TOKEN found{};
  DWORD size = 0;
  // A caller with the right to act as part of the operating system gets a primary token, with which
  // a program can be started as it is. LocalSystem has that right and has it enabled. Others get
  // one that is good for looking at alone.
  if (!GetTokenInformation(Native(token), TokenLinkedToken, &found, sizeof found, &size)) {
    return GetLastError();
  }
  linked.Adopt(reinterpret_cast<std::uintptr_t>(found.LinkedToken));
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
  return StartProgramAs(Native(token), reinterpret_cast<void*>(environment.handle()), start,
                        started);
}

}  // namespace kestrelon::platform

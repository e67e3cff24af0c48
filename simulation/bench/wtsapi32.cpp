// The bench's wtsapi32.dll: a machine with one user, who is signed in to the session that every
// process under Wine runs in. Wine's own lists no sessions.
#include <windows.h>

#include <wtsapi32.h>

#include <algorithm>
#include <iterator>

namespace simulation {
namespace {

constexpr DWORD kServicesSession = 0;
constexpr DWORD kUserSession = 1;

wchar_t services_name[] = L"Services";
wchar_t console_name[] = L"Console";
constexpr WTS_SESSION_INFOW kSessions[] = {{kServicesSession, services_name, WTSDisconnected},
                                           {kUserSession, console_name, WTSActive}};

// All that CreateProcessAsUserW wants of a token.
constexpr DWORD kTokenAccess = TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_ASSIGN_PRIMARY |
                               TOKEN_ADJUST_DEFAULT | TOKEN_ADJUST_SESSIONID;

}  // namespace
}  // namespace simulation

BOOL WINAPI WTSEnumerateSessionsW(HANDLE /*server*/, DWORD reserved, DWORD version,
                                  PWTS_SESSION_INFOW* sessions, DWORD* count) {
  if (reserved != 0 || version != 1 || sessions == nullptr || count == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  void* const memory = LocalAlloc(LMEM_FIXED, sizeof simulation::kSessions);
  if (memory == nullptr) return FALSE;
  *sessions = static_cast<WTS_SESSION_INFOW*>(memory);
  std::copy(std::begin(simulation::kSessions), std::end(simulation::kSessions), *sessions);
  *count = static_cast<DWORD>(std::size(simulation::kSessions));
  return TRUE;
}

void WINAPI WTSFreeMemory(void* memory) {
  LocalFree(memory);
}

// The user is the one that everything under Wine runs as: that of the caller.
BOOL WINAPI WTSQueryUserToken(ULONG session, HANDLE* token) {
  if (session != simulation::kUserSession) {
    SetLastError(ERROR_NO_TOKEN);
    return FALSE;
  }
  HANDLE own = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_DUPLICATE, &own)) return FALSE;
  const BOOL duplicated = DuplicateTokenEx(own, simulation::kTokenAccess, nullptr,
                                           SecurityImpersonation, TokenPrimary, token);
  CloseHandle(own);
  return duplicated;
}

// Sessions of users at this machine, and programs started in them as their user. The calls that
// take a session's token are for LocalSystem alone.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/codes.h"
#include "platform/handle.h"
#include "platform/processes.h"

namespace kestrelon::platform {

inline constexpr std::uint32_t kSessionActive = 0;  // WTSActive: a user is signed in and connected

struct Session {
  std::uint32_t id = 0;     // 0 is the one of the services
  std::uint32_t state = 0;  // WTS_CONNECTSTATE_CLASS
};

[[nodiscard]] Code ListSessions(std::vector<Session>& sessions);

// The primary token of the user signed in to a session.
void CloseUserToken(std::uintptr_t token);
using UserToken = Handle<&CloseUserToken>;

[[nodiscard]] Code QuerySessionUser(std::uint32_t session, UserToken& token);

// The environment variables of a user, with nothing of this process's own.
void CloseUserEnvironment(std::uintptr_t environment);
using UserEnvironment = Handle<&CloseUserEnvironment>;

[[nodiscard]] Code MakeUserEnvironment(const UserToken& token, UserEnvironment& environment);

enum ProgramFlags : std::uint32_t {
  kNewProcessGroup = 0x200,
  kUnicodeEnvironment = 0x400,
};

struct ProgramStart {
  std::wstring application;   // full path
  std::wstring command_line;  // as the program gets it, with its own name first
  std::wstring directory;     // where it begins
  std::wstring desktop;       // "winsta0\default" for the one that the user sees
  std::uint32_t flags = 0;    // ProgramFlags
};

struct StartedProgram {
  std::uint32_t process_id = 0;
  Process process;
};

// Starts a program as a session's user. It inherits no handles. An environment that is not open
// stands for this process's own.
[[nodiscard]] Code StartAsUser(const UserToken& token, const UserEnvironment& environment,
                               const ProgramStart& start, StartedProgram& started);

}  // namespace kestrelon::platform

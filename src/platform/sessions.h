// Sessions of users at this machine, and programs started in them as their user. The calls that
// take a session's token are for LocalSystem alone.
#pragma once

#include <cstdint>
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

inline constexpr std::uint32_t kElevationLimited = 3;  // TokenElevationTypeLimited

// TOKEN_ELEVATION_TYPE: whether an administrator's rights were split between two tokens, and which
// of them this is.
[[nodiscard]] Code QueryTokenElevation(const UserToken& token, std::uint32_t& type);

// The other token of a split pair; a failure for a token that is none of a pair. A program can be
// started with it as with the first.
[[nodiscard]] Code QueryLinkedToken(const UserToken& token, UserToken& linked);

// The environment variables of a user, with nothing of this process's own.
void CloseUserEnvironment(std::uintptr_t environment);
using UserEnvironment = Handle<&CloseUserEnvironment>;

[[nodiscard]] Code MakeUserEnvironment(const UserToken& token, UserEnvironment& environment);

// Starts a program as a session's user. It inherits no handles. An environment that is not open
// stands for this process's own.
[[nodiscard]] Code StartAsUser(const UserToken& token, const UserEnvironment& environment,
                               const ProgramStart& start, StartedProgram& started);

}  // namespace kestrelon::platform

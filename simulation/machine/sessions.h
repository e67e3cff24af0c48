// The sessions of the machine, their users, and programs started for these.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/codes.h"
#include "platform/sessions.h"
#include "simulation/machine/process_table.h"
#include "simulation/machine/token.h"

namespace simulation {

// Any thread.
class Sessions {
 public:
  using Code = kestrelon::platform::Code;

  // Session 0 is there from the start: disconnected, of no user.
  Sessions(ProcessTable& processes, const ProcessToken& token);

  // A user signs in: the session is active.
  void SignIn(std::uint32_t id, const std::wstring& user = L"user");

  // Gives the user of a session a token of another elevation type; kElevationDefault after SignIn.
  // One that is limited or full has a linked token of the other kind.
  void SetElevation(std::uint32_t id, std::uint32_t type);

  // The session is gone, and all its processes end.
  void SignOut(std::uint32_t id);

  // Sets the state (WTS_CONNECTSTATE_CLASS) of a session; one that isn't there is made, without a
  // user.
  void SetState(std::uint32_t id, std::uint32_t state);

  // Tokens and environments given out and not closed.
  std::size_t open_handles() const;

  // As after a restart: session 0 alone is there, and no handle.
  void Restart();

  // The calls of the seam, as platform/sessions.h tells.
  std::vector<kestrelon::platform::Session> List() const;
  Code QueryUser(std::uint32_t session, std::uintptr_t& token);
  Code Elevation(std::uintptr_t token, std::uint32_t& type) const;
  Code QueryLinked(std::uintptr_t token, std::uintptr_t& linked);
  Code MakeEnvironment(std::uintptr_t token, std::uintptr_t& environment);
  Code Start(std::uintptr_t token, std::uintptr_t environment,
             const kestrelon::platform::ProgramStart& start, std::uint32_t& process_id,
             std::uintptr_t& process);
  void CloseToken(std::uintptr_t token);
  void CloseEnvironment(std::uintptr_t environment);

 private:
  struct UserSession {
    std::uint32_t state = 0;
    std::optional<std::wstring> user;
    std::uint32_t elevation = kElevationDefault;
  };
  struct Token {
    std::uint32_t session = 0;
    std::wstring user;
    std::uint32_t elevation = kElevationDefault;
  };

  void AddServicesSession();

  ProcessTable& processes_;
  const ProcessToken& token_;

  mutable std::mutex mutex_;  // guards all below; taken before those of files and processes
  std::map<std::uint32_t, UserSession> sessions_;
  std::map<std::uintptr_t, Token> tokens_;
  std::map<std::uintptr_t, std::wstring> environments_;  // whose they are
  std::uintptr_t last_handle_ = 0x3000;
};

}  // namespace simulation

#include "simulation/machine/sessions.h"

#include "simulation/machine/machine.h"

namespace simulation {

using kestrelon::platform::kElevationLimited;
using kestrelon::platform::kInvalidHandle;
using kestrelon::platform::kInvalidParameter;
using kestrelon::platform::kSessionActive;
using kestrelon::platform::kSuccess;
using kestrelon::platform::ProgramStart;
using kestrelon::platform::Session;

namespace {

constexpr kestrelon::platform::Code kNoToken = 1008;
constexpr kestrelon::platform::Code kNoLinkedToken = 1312;  // ERROR_NO_SUCH_LOGON_SESSION
constexpr kestrelon::platform::Code kPrivilegeNotHeld = 1314;
constexpr kestrelon::platform::Code kNoSession = 7022;  // ERROR_CTX_WINSTATION_NOT_FOUND

constexpr std::uint32_t kServicesSession = 0;
constexpr std::uint32_t kDisconnected = 4;  // WTSDisconnected

}  // namespace

Sessions::Sessions(ProcessTable& processes, const ProcessToken& token)
    : processes_(processes), token_(token) {
  AddServicesSession();
}

void Sessions::AddServicesSession() {
  sessions_[kServicesSession] = {.state = kDisconnected, .user = std::nullopt};
}

void Sessions::SignIn(std::uint32_t id, const std::wstring& user) {
  const std::lock_guard lock(mutex_);
  sessions_[id] = {.state = kSessionActive, .user = user};
}

void Sessions::SetElevation(std::uint32_t id, std::uint32_t type) {
  const std::lock_guard lock(mutex_);
  sessions_[id].elevation = type;
}

void Sessions::SignOut(std::uint32_t id) {
  const std::lock_guard lock(mutex_);
  sessions_.erase(id);
  processes_.EndSession(id);
}

void Sessions::SetState(std::uint32_t id, std::uint32_t state) {
  const std::lock_guard lock(mutex_);
  sessions_[id].state = state;
}

std::size_t Sessions::open_handles() const {
  const std::lock_guard lock(mutex_);
  return tokens_.size() + environments_.size();
}

void Sessions::Restart() {
  const std::lock_guard lock(mutex_);
  tokens_.clear();
  environments_.clear();
  sessions_.clear();
  AddServicesSession();
}

std::vector<Session> Sessions::List() const {
  const std::lock_guard lock(mutex_);
  std::vector<Session> list;
  for (const auto& [id, session] : sessions_) list.push_back({id, session.state});
  return list;
}

Sessions::Code Sessions::QueryUser(std::uint32_t session, std::uintptr_t& token) {
  if (!token_.local_system) return kPrivilegeNotHeld;
  const std::lock_guard lock(mutex_);
  const auto found = sessions_.find(session);
  if (found == sessions_.end()) return kNoSession;
  if (!found->second.user) return kNoToken;
  token = last_handle_ += 4;
  tokens_[token] = {session, *found->second.user, found->second.elevation};
  return kSuccess;
}

Sessions::Code Sessions::Elevation(std::uintptr_t token, std::uint32_t& type) const {
  const std::lock_guard lock(mutex_);
  const auto found = tokens_.find(token);
  if (found == tokens_.end()) return kInvalidHandle;
  type = found->second.elevation;
  return kSuccess;
}

Sessions::Code Sessions::QueryLinked(std::uintptr_t token, std::uintptr_t& linked) {
  const std::lock_guard lock(mutex_);
  const auto found = tokens_.find(token);
  if (found == tokens_.end()) return kInvalidHandle;
  Token other = found->second;
  if (other.elevation == kElevationDefault) return kNoLinkedToken;
  other.elevation = other.elevation == kElevationLimited ? kElevationFull : kElevationLimited;
  linked = last_handle_ += 4;
  tokens_[linked] = other;
  return kSuccess;
}

Sessions::Code Sessions::MakeEnvironment(std::uintptr_t token, std::uintptr_t& environment) {
  const std::lock_guard lock(mutex_);
  const auto found = tokens_.find(token);
  if (found == tokens_.end()) return kInvalidHandle;
  environment = last_handle_ += 4;
  environments_[environment] = found->second.user;
  return kSuccess;
}

Sessions::Code Sessions::Start(std::uintptr_t token, std::uintptr_t environment,
                               const ProgramStart& start, std::uint32_t& process_id,
                               std::uintptr_t& process) {
  const std::lock_guard lock(mutex_);
  const auto user = tokens_.find(token);
  if (user == tokens_.end()) return kInvalidHandle;
  if (environment != 0 && !environments_.contains(environment)) return kInvalidParameter;
  // A token may outlive its session.
  if (!sessions_.contains(user->second.session)) return kNoSession;
  return processes_.Launch({.path = start.application,
                            .session = user->second.session,
                            .command_line = start.command_line,
                            .directory = start.directory,
                            .desktop = start.desktop,
                            .user = user->second.user,
                            .flags = start.flags,
                            .elevation = user->second.elevation,
                            .environment = environment != 0},
                           process_id, process);
}

void Sessions::CloseToken(std::uintptr_t token) {
  const std::lock_guard lock(mutex_);
  tokens_.erase(token);
}

void Sessions::CloseEnvironment(std::uintptr_t environment) {
  const std::lock_guard lock(mutex_);
  environments_.erase(environment);
}

}  // namespace simulation

namespace kestrelon::platform {

using simulation::TheMachine;

Code ListSessions(std::vector<Session>& sessions) {
  if (const Code fault = TheMachine().faults.Next("ListSessions")) return fault;
  sessions = TheMachine().sessions.List();
  return kSuccess;
}

void CloseUserToken(std::uintptr_t token) {
  TheMachine().sessions.CloseToken(token);
}

Code QuerySessionUser(std::uint32_t session, UserToken& token) {
  if (const Code fault = TheMachine().faults.Next("QuerySessionUser")) return fault;
  std::uintptr_t handle = 0;
  const Code code = TheMachine().sessions.QueryUser(session, handle);
  if (code == kSuccess) token.Adopt(handle);
  return code;
}

Code QueryTokenElevation(const UserToken& token, std::uint32_t& type) {
  if (const Code fault = TheMachine().faults.Next("QueryTokenElevation")) return fault;
  return TheMachine().sessions.Elevation(token.handle(), type);
}

Code QueryLinkedToken(const UserToken& token, UserToken& linked) {
  if (const Code fault = TheMachine().faults.Next("QueryLinkedToken")) return fault;
  std::uintptr_t handle = 0;
  const Code code = TheMachine().sessions.QueryLinked(token.handle(), handle);
  if (code == kSuccess) linked.Adopt(handle);
  return code;
}

void CloseUserEnvironment(std::uintptr_t environment) {
  TheMachine().sessions.CloseEnvironment(environment);
}

Code MakeUserEnvironment(const UserToken& token, UserEnvironment& environment) {
  if (const Code fault = TheMachine().faults.Next("MakeUserEnvironment")) return fault;
  std::uintptr_t handle = 0;
  const Code code = TheMachine().sessions.MakeEnvironment(token.handle(), handle);
  if (code == kSuccess) environment.Adopt(handle);
  return code;
}

Code StartAsUser(const UserToken& token, const UserEnvironment& environment,
                 const ProgramStart& start, StartedProgram& started) {
  if (const Code fault = TheMachine().faults.Next("StartAsUser")) return fault;
  std::uint32_t process_id = 0;
  std::uintptr_t process = 0;
  const Code code =
      TheMachine().sessions.Start(token.handle(), environment.handle(), start, process_id, process);
  if (code != kSuccess) return code;
  if (const Code lost = TheMachine().processes.Act(start.application, process_id)) return lost;
  started.process_id = process_id;
  started.process.Adopt(process);
  return kSuccess;
}

}  // namespace kestrelon::platform

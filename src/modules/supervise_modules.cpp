#include "modules/supervise_modules.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "core/service_log.h"
#include "modules/find_in_session.h"
#include "modules/firewall_exceptions.h"
#include "modules/known_modules.h"
#include "modules/module_history.h"
#include "modules/module_pipe.h"
#include "modules/start_in_session.h"
#include "modules/verify_module.h"
#include "platform/clock.h"
#include "platform/processes.h"
#include "platform/sessions.h"

namespace kestrelon {
namespace {

// With this a module says that its user closed it. Any other code, 0 too, is a crash.
constexpr std::uint32_t kClosedByUser = 0x4B530000;
constexpr std::uint32_t kTurnedOff = 1;  // what a module ends with that is stopped

ModuleHistory History GUARDED_BY(ModuleGuard);

// A known module as this pass finds it.
struct Candidate {
  ModuleStatus status;
  bool wanted = false;  // to run in each session with a user
};
using Candidates = std::vector<Candidate>;

Candidates LookAtModules(const Config& config) {
  Candidates modules;
  for (const KnownModule& known : KnownModules()) {
    ModuleStatus status = VerifyModule(known.id);
    const bool wanted = ModuleIsActive(config, status);
    modules.push_back({std::move(status), wanted});
  }
  return modules;
}

bool IsWanted(const Candidates& modules, const std::wstring& id) {
  return std::ranges::any_of(
      modules, [&](const Candidate& module) { return module.wanted && module.status.id == id; });
}

// What was asked for counts as applied even if it failed: a firewall that refuses is not asked
// again on every pass. Without a manifest it isn't known under which name the exceptions are.
void SyncExceptions(const Candidates& modules) {
  for (const auto& [status, wanted] : modules) {
    if (!status.manifest_valid || FirewallExceptionApplied(status.id) == wanted) continue;
    const bool synced = SyncFirewallException(status, wanted);
    LogService(L"Windows Defender Firewall exception for module %s %s%s", status.id,
               wanted ? L"added" : L"removed", synced ? L"" : L" - FAILED");
    NoteFirewallException(status.id, wanted);
  }
}

// There while there is somebody to talk to.
void SyncPipe(const Candidates& modules) {
  if (std::ranges::any_of(modules, &Candidate::wanted)) {
    OpenModulePipe();
  } else {
    CloseModulePipe();
  }
}

// Where a user sits at the screen and can be acted for. Session 0 is that of the services.
std::vector<std::uint32_t> UserSessions() {
  std::vector<platform::Session> all;
  if (platform::ListSessions(all) != platform::kSuccess) return {};
  std::vector<std::uint32_t> sessions;
  for (const platform::Session& session : all) {
    platform::UserToken user;
    if (session.state == platform::kSessionActive && session.id != 0 &&
        platform::QuerySessionUser(session.id, user) == platform::kSuccess) {
      sessions.push_back(session.id);
    }
  }
  return sessions;
}

// One that can't be ended is let go of all the same; its rules and its exceptions are gone already.
void TurnOff(const ModuleProcess& process) {
  (void)platform::EndProcess(process.process, kTurnedOff);
  LogService(L"Module %s stopped in session %lu (turned off)", process.module_id, process.session);
}

void NoteCrash(const ModuleProcess& process, std::uint32_t exit_code) REQUIRES(ModuleGuard) {
  const bool given_up =
      History.NoteCrash({process.module_id, process.session}, platform::TickMilliseconds());
  LogService(L"Module %s ended unexpectedly in session %lu (exit code 0x%08lX)", process.module_id,
             process.session, exit_code);
  if (!given_up) return;
  LogService(
      L"Module %s ended 3 times within 10 minutes - not started again in session %lu until the "
      L"next sign-in",
      process.module_id, process.session);
}

void NoteEnd(const ModuleProcess& process) REQUIRES(ModuleGuard) {
  // A code that can't be read is 0 and so a crash: closed is what only the module itself can say,
  // and only crashes are limited.
  std::uint32_t exit_code = 0;
  (void)platform::ProcessExitCode(process.process, exit_code);
  if (exit_code != kClosedByUser) {
    NoteCrash(process, exit_code);
    return;
  }
  History.NoteClosed({process.module_id, process.session});
  LogService(L"Module %s closed by the user in session %lu", process.module_id, process.session);
}

// Whether a process is supervised on.
bool StaysSupervised(const ModuleProcess& process, const Candidates& modules)
    REQUIRES(ModuleGuard) {
  if (platform::HasProcessEnded(process.process)) {
    NoteEnd(process);
    return false;
  }
  if (IsWanted(modules, process.module_id)) return true;
  TurnOff(process);
  return false;
}

void ReviewProcesses(const Candidates& modules) REQUIRES(ModuleGuard) {
  std::vector<ModuleProcess> kept;
  for (ModuleProcess& process : ModuleProcesses) {
    if (StaysSupervised(process, modules)) kept.push_back(std::move(process));
  }
  ModuleProcesses = std::move(kept);
}

bool IsSupervised(const std::wstring& id, std::uint32_t session) REQUIRES(ModuleGuard) {
  return std::ranges::any_of(ModuleProcesses, [&](const ModuleProcess& process) {
    return process.module_id == id && process.session == session;
  });
}

// A service that was restarted finds the modules of its last run.
bool TakeOver(const ModuleStatus& status, std::uint32_t session) REQUIRES(ModuleGuard) {
  ModuleProcess process;
  if (!FindInSession(status, session, process)) return false;
  LogService(L"Module %s already runs in session %lu (process %lu) - taken over", status.id,
             session, process.process_id);
  ModuleProcesses.push_back(std::move(process));
  return true;
}

void Start(const ModuleStatus& status, std::uint32_t session) REQUIRES(ModuleGuard) {
  ModuleProcess process;
  std::wstring error;
  if (!StartInSession(status, session, process, error)) {
    LogService(L"Module %s could not be started in session %lu: %s", status.id, session, error);
    History.NoteFailedStart({status.id, session}, platform::TickMilliseconds());
    return;
  }
  LogService(L"Module %s started in session %lu (process %lu)", status.id, session,
             process.process_id);
  ModuleProcesses.push_back(std::move(process));
}

void StartMissing(const Candidates& modules, const std::vector<std::uint32_t>& sessions)
    REQUIRES(ModuleGuard) {
  for (const auto& [status, wanted] : modules) {
    if (!wanted) continue;
    for (const std::uint32_t session : sessions) {
      if (IsSupervised(status.id, session) || !History.MayStart({status.id, session})) continue;
      if (!TakeOver(status, session)) Start(status, session);
    }
  }
}

}  // namespace

void SuperviseModules(const Config& config) {
  // A client that hangs since before the stop may come here after it.
  if (Core.Stopping) return;
  const Candidates modules = LookAtModules(config);
  SyncExceptions(modules);
  SyncPipe(modules);
  const std::vector<std::uint32_t> sessions = UserSessions();

  // To the end of the pass: the client of a module just started is looked up in the list only once
  // it stands there.
  GuardLock lock(ModuleGuard);
  ReviewProcesses(modules);
  History.KeepSessions(sessions);
  StartMissing(modules, sessions);
}

}  // namespace kestrelon

// The processes of the machine and the handles to them.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/codes.h"
#include "platform/processes.h"
#include "simulation/machine/clock.h"
#include "simulation/machine/environment.h"
#include "simulation/machine/faults.h"
#include "simulation/machine/file_system.h"

namespace simulation {

// TOKEN_ELEVATION_TYPE, beside kElevationLimited of the seam.
inline constexpr std::uint32_t kElevationDefault = 1;
inline constexpr std::uint32_t kElevationFull = 2;

struct SimulatedProcess {
  std::uint32_t id = 0;
  std::wstring path;
  std::uint32_t session = 0;
  // Of a process that a call of the seam started; empty for others.
  std::wstring command_line = {};
  std::wstring directory = {};
  std::wstring desktop = {};
  std::wstring user = {};                       // empty for the account of services
  std::uint32_t flags = 0;                      // kestrelon::platform::ProgramFlags
  std::uint32_t elevation = kElevationDefault;  // of its token
  bool environment = false;                     // whether it was given one of its own
  bool running = true;
  std::uint32_t exit_code = 259;  // STILL_ACTIVE
};

// Ids are given anew as soon as the platform may: when the process has ended and no handle holds
// it. Any thread.
class ProcessTable {
 public:
  using Code = kestrelon::platform::Code;

  // The process that this machine's calls come from. It runs `environment.executable`, as the
  // account of services.
  static constexpr std::uint32_t kOwnProcess = 5040;

  ProcessTable(const Environment& environment, FileSystem& files, Clock& clock,
               const Faults& faults);

  // Another program starts, whether its file exists or not. Gives its id.
  std::uint32_t Start(const std::wstring& path, std::uint32_t session);

  // A process ends by itself; does nothing when it has ended or there is none.
  void End(std::uint32_t id, std::uint32_t exit_code);

  // What a program does when a call of the seam has started it from this file, found without regard
  // to case. It is done within that call, with the new process as the one that acts, and stays over
  // a restart. A program that nothing is told of runs until somebody ends it.
  void OnStart(const std::wstring& path, std::function<void(std::uint32_t id)> action);

  // Whether this machine's job lets no program out of it; a fresh machine has no job.
  void ForbidBreakaway(bool forbid);

  // The process as it is now or was when it ended; until its id is given anew.
  std::optional<SimulatedProcess> Find(std::uint32_t id) const;

  // The ids of the running processes of a file, found without regard to case, in a session.
  std::vector<std::uint32_t> Running(const std::wstring& path, std::uint32_t session) const;

  // Handles given out and not closed.
  std::size_t open_handles() const;

  // As after a restart: the own process alone is there, and no handle.
  void Restart();

  // Ends the waits of all, as the power has gone.
  void WakeAll();

  // All processes of a session end, as their user signs out.
  void EndSession(std::uint32_t session);

  // The calls of the seam, as platform/processes.h tells.
  std::vector<SimulatedProcess> List() const;
  Code Session(std::uint32_t id, std::uint32_t& session) const;
  Code Open(std::uint32_t id, std::uint32_t access, std::uintptr_t& handle);
  Code Image(std::uintptr_t handle, std::wstring& path) const;
  bool HasEnded(std::uintptr_t handle) const;
  // On a held clock the time passes at once.
  Code Await(std::uintptr_t handle, std::uint32_t timeout_ms);
  Code ExitCode(std::uintptr_t handle, std::uint32_t& exit_code) const;
  Code Terminate(std::uintptr_t handle, std::uint32_t exit_code);
  void Close(std::uintptr_t handle);
  // Makes a process of all but its id; gives that and a handle with every right.
  Code Launch(SimulatedProcess process, std::uint32_t& id, std::uintptr_t& handle);
  // Has a program just launched from this file do what OnStart tells; fails when the power goes
  // meanwhile.
  Code Act(const std::wstring& path, std::uint32_t id);

 private:
  using Entry = std::shared_ptr<SimulatedProcess>;

  struct Handle {
    std::uint32_t access = 0;
    Entry process;
  };

  // All need mutex_.
  void AddOwnProcess();
  void EndNow(SimulatedProcess& process, std::uint32_t exit_code);
  Entry Add(SimulatedProcess process);
  Entry Existing(std::uint32_t id) const;
  std::uintptr_t AddHandle(const Entry& process, std::uint32_t access);
  Code ProcessBehind(std::uintptr_t handle, std::uint32_t access, Entry& process) const;
  SimulatedProcess Told(const SimulatedProcess& process) const;

  const Environment& environment_;
  FileSystem& files_;
  Clock& clock_;
  const Faults& faults_;

  std::condition_variable ended_;             // a process, or the power
  mutable std::mutex mutex_;                  // guards all below; taken after that of the files
  std::map<std::uint32_t, Entry> processes_;  // by id, also ended ones
  std::map<std::uintptr_t, Handle> handles_;
  std::uintptr_t last_handle_ = 0x2000;
  std::map<std::wstring, std::function<void(std::uint32_t)>> actions_;  // by folded path
  bool breakaway_forbidden_ = false;
};

}  // namespace simulation

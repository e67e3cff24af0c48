// Processes: what the own one uses, and the life of others.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/codes.h"
#include "platform/handle.h"

namespace kestrelon::platform {

struct MemoryUse {
  std::uint64_t working_set_bytes = 0;
  std::uint64_t private_bytes = 0;
};

// What this process uses.
[[nodiscard]] Code OwnMemoryUse(MemoryUse& use);
[[nodiscard]] Code OwnHandleCount(std::uint32_t& count);

struct RunningProcess {
  std::uint32_t id = 0;
  std::wstring executable;  // the file's name without its directory
};

// The processes that run now, in the platform's order.
[[nodiscard]] Code ListProcesses(std::vector<RunningProcess>& processes);

// The session that a process runs in.
[[nodiscard]] Code SessionOfProcess(std::uint32_t process_id, std::uint32_t& session);

enum ProcessAccess : std::uint32_t {
  kProcessTerminate = 0x1,
  kProcessQueryLimited = 0x1000,
  kProcessSynchronize = 0x100000,
};

// A process that somebody holds on to: its id is not given to another meanwhile.
void CloseProcess(std::uintptr_t process);
using Process = Handle<&CloseProcess>;

[[nodiscard]] Code OpenProcessById(std::uint32_t process_id, std::uint32_t access,
                                   Process& process);

// The full path of the file that it was started from, with a drive letter.
[[nodiscard]] Code ProcessImage(const Process& process, std::wstring& path);

// Whether it has ended; needs kProcessSynchronize. Not when that can't be learnt.
[[nodiscard]] bool HasProcessEnded(const Process& process);

// Waits until it has ended; kWaitTimeout when it has not by then. Needs kProcessSynchronize.
[[nodiscard]] Code AwaitProcess(const Process& process, std::uint32_t timeout_ms);

// What it ended with; 259 while it runs.
[[nodiscard]] Code ProcessExitCode(const Process& process, std::uint32_t& exit_code);

// Ends it at once, whatever it does. It may take a moment longer until it has ended.
Code EndProcess(const Process& process, std::uint32_t exit_code);

enum ProgramFlags : std::uint32_t {
  kNewProcessGroup = 0x200,
  kUnicodeEnvironment = 0x400,
  kBreakawayFromJob = 0x1000000,
  kNoWindow = 0x8000000,
};

struct ProgramStart {
  std::wstring application;   // full path
  std::wstring command_line;  // as the program gets it, with its own name first
  std::wstring directory;     // where it begins
  std::wstring desktop;       // "winsta0\default" for the one that the user sees; empty: the own
  std::uint32_t flags = 0;    // ProgramFlags
};

struct StartedProgram {
  std::uint32_t process_id = 0;
  Process process;
};

// Starts a program as this process's own user. It inherits no handles.
[[nodiscard]] Code StartProgram(const ProgramStart& start, StartedProgram& started);

}  // namespace kestrelon::platform

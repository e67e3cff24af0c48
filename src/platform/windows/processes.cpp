#include "platform/processes.h"

#include "platform/windows/owned.h"
#include "platform/windows/start_program.h"

#include <psapi.h>
#include <tlhelp32.h>

#include <utility>

namespace kestrelon::platform {
namespace {

using Snapshot = Owned<HANDLE, CloseKernelHandle, -1>;

constexpr DWORD kFirstPathRoom = 512;
constexpr DWORD kLongestPath = 32768;

HANDLE Native(const Process& process) {
  return reinterpret_cast<HANDLE>(process.handle());
}

}  // namespace

Code OwnMemoryUse(MemoryUse& use) {
  PROCESS_MEMORY_COUNTERS_EX counters{};
  counters.cb = sizeof counters;
  // The call takes the extended form by its size, under the type of the plain one.
  if (!K32GetProcessMemoryInfo(GetCurrentProcess(),
                               reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                               sizeof counters)) {
    return GetLastError();
  }
  use = {counters.WorkingSetSize, counters.PrivateUsage};
  return kSuccess;
}

Code OwnHandleCount(std::uint32_t& count) {
  DWORD handles = 0;
  if (!GetProcessHandleCount(GetCurrentProcess(), &handles)) return GetLastError();
  count = handles;
  return kSuccess;
}

Code ListProcesses(std::vector<RunningProcess>& processes) {
  const Snapshot snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!snapshot) return GetLastError();
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof entry;
  std::vector<RunningProcess> list;
  BOOL found = Process32FirstW(snapshot.get(), &entry);
  while (found) {
    list.push_back({entry.th32ProcessID, entry.szExeFile});
    found = Process32NextW(snapshot.get(), &entry);
  }
  if (const Code end = GetLastError(); end != kNoMoreFiles) return end;
  processes = std::move(list);
  return kSuccess;
}

Code SessionOfProcess(std::uint32_t process_id, std::uint32_t& session) {
  DWORD found = 0;
  if (!ProcessIdToSessionId(process_id, &found)) return GetLastError();
  session = found;
  return kSuccess;
}

void CloseProcess(std::uintptr_t process) {
  CloseHandle(reinterpret_cast<HANDLE>(process));
}

Code OpenProcessById(std::uint32_t process_id, std::uint32_t access, Process& process) {
  const HANDLE handle = OpenProcess(access, FALSE, process_id);
  if (handle == nullptr) return GetLastError();
  process.Adopt(reinterpret_cast<std::uintptr_t>(handle));
  return kSuccess;
}

Code ProcessImage(const Process& process, std::wstring& path) {
  Code code = kInsufficientBuffer;
  for (DWORD room = kFirstPathRoom; code == kInsufficientBuffer && room <= kLongestPath;
       room *= 2) {
    std::wstring buffer(room, L'\0');
    DWORD length = room;
    if (QueryFullProcessImageNameW(Native(process), 0, buffer.data(), &length)) {
      path.assign(buffer, 0, length);
      return kSuccess;
    }
    code = GetLastError();
  }
  return code;
}

bool HasProcessEnded(const Process& process) {
  return WaitForSingleObject(Native(process), 0) == WAIT_OBJECT_0;
}

Code AwaitProcess(const Process& process, std::uint32_t timeout_ms) {
  switch (WaitForSingleObject(Native(process), timeout_ms)) {
    case WAIT_OBJECT_0:
      return kSuccess;
    case WAIT_TIMEOUT:
      return kWaitTimeout;
    default:
      return GetLastError();
  }
}

Code ProcessExitCode(const Process& process, std::uint32_t& exit_code) {
  DWORD code = 0;
  if (!GetExitCodeProcess(Native(process), &code)) return GetLastError();
  exit_code = code;
  return kSuccess;
}

Code EndProcess(const Process& process, std::uint32_t exit_code) {
  return TerminateProcess(Native(process), exit_code) ? kSuccess : GetLastError();
}

Code StartProgramAs(HANDLE token, void* environment, const ProgramStart& start,
                    StartedProgram& started) {
  // The calls may write into the command line.
  std::wstring command_line = start.command_line;
  std::wstring desktop = start.desktop;
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  if (!desktop.empty()) startup.lpDesktop = desktop.data();
  const wchar_t* const application = start.application.c_str();
  const wchar_t* const directory = start.directory.empty() ? nullptr : start.directory.c_str();
  PROCESS_INFORMATION made{};
  const BOOL done =
      token == nullptr
          ? CreateProcessW(application, command_line.data(), nullptr, nullptr, FALSE, start.flags,
                           environment, directory, &startup, &made)
          : CreateProcessAsUserW(token, application, command_line.data(), nullptr, nullptr, FALSE,
                                 start.flags, environment, directory, &startup, &made);
  if (!done) return GetLastError();
  CloseHandle(made.hThread);
  started.process_id = made.dwProcessId;
  started.process.Adopt(reinterpret_cast<std::uintptr_t>(made.hProcess));
  return kSuccess;
}

Code StartProgram(const ProgramStart& start, StartedProgram& started) {
  return StartProgramAs(nullptr, nullptr, start, started);
}

}  // namespace kestrelon::platform

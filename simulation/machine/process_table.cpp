#include "simulation/machine/process_table.h"

#include <chrono>
#include <utility>

#include "platform/wait.h"
#include "simulation/machine/acting_process.h"
#include "simulation/machine/letter_case.h"

namespace simulation {

using kestrelon::platform::kAccessDenied;
using kestrelon::platform::kBreakawayFromJob;
using kestrelon::platform::kInvalidHandle;
using kestrelon::platform::kInvalidParameter;
using kestrelon::platform::kProcessQueryLimited;
using kestrelon::platform::kProcessSynchronize;
using kestrelon::platform::kProcessTerminate;
using kestrelon::platform::kSuccess;
using kestrelon::platform::kWaitForever;
using kestrelon::platform::kWaitTimeout;

namespace {

// What asking for the file of a process that has ended answers (ERROR_GEN_FAILURE).
constexpr kestrelon::platform::Code kImageGone = 31;

constexpr std::uint32_t kAllAccess = 0x1FFFFF;
constexpr std::uint32_t kEndedBySignOut = 0x40010004;  // DBG_TERMINATE_PROCESS

// The platform's ids and handle values are multiples of four.
constexpr std::uint32_t kStep = 4;

}  // namespace

ProcessTable::ProcessTable(const Environment& environment, FileSystem& files, Clock& clock,
                           const Faults& faults)
    : environment_(environment), files_(files), clock_(clock), faults_(faults) {
  AddOwnProcess();
}

void ProcessTable::EndNow(SimulatedProcess& process, std::uint32_t exit_code) {
  process.running = false;
  process.exit_code = exit_code;
  ended_.notify_all();
}

void ProcessTable::AddOwnProcess() {
  processes_[kOwnProcess] =
      std::make_shared<SimulatedProcess>(SimulatedProcess{.id = kOwnProcess, .path = L""});
}

// Tests name the own executable after the machine was made.
SimulatedProcess ProcessTable::Told(const SimulatedProcess& process) const {
  SimulatedProcess told = process;
  if (told.id == kOwnProcess) told.path = environment_.executable;
  return told;
}

// The process of this id while the platform knows it: until it has ended and nobody holds it.
ProcessTable::Entry ProcessTable::Existing(std::uint32_t id) const {
  const auto found = processes_.find(id);
  if (found == processes_.end()) return nullptr;
  const bool held = found->second.use_count() > 1;
  return found->second->running || held ? found->second : nullptr;
}

ProcessTable::Entry ProcessTable::Add(SimulatedProcess process) {
  process.id = kOwnProcess + kStep;
  while (Existing(process.id)) process.id += kStep;
  const Entry entry = std::make_shared<SimulatedProcess>(std::move(process));
  processes_[entry->id] = entry;
  return entry;
}

std::uintptr_t ProcessTable::AddHandle(const Entry& process, std::uint32_t access) {
  last_handle_ += kStep;
  handles_[last_handle_] = {access, process};
  return last_handle_;
}

ProcessTable::Code ProcessTable::ProcessBehind(std::uintptr_t handle, std::uint32_t access,
                                               Entry& process) const {
  const auto found = handles_.find(handle);
  if (found == handles_.end()) return kInvalidHandle;
  if ((found->second.access & access) != access) return kAccessDenied;
  process = found->second.process;
  return kSuccess;
}

std::uint32_t ProcessTable::Start(const std::wstring& path, std::uint32_t session) {
  const std::lock_guard lock(mutex_);
  return Add({.path = path, .session = session})->id;
}

void ProcessTable::End(std::uint32_t id, std::uint32_t exit_code) {
  const std::lock_guard lock(mutex_);
  const Entry process = Existing(id);
  if (process && process->running) EndNow(*process, exit_code);
}

void ProcessTable::OnStart(const std::wstring& path, std::function<void(std::uint32_t)> action) {
  const std::lock_guard lock(mutex_);
  actions_[FoldCase(path)] = std::move(action);
}

void ProcessTable::ForbidBreakaway(bool forbid) {
  const std::lock_guard lock(mutex_);
  breakaway_forbidden_ = forbid;
}

std::optional<SimulatedProcess> ProcessTable::Find(std::uint32_t id) const {
  const std::lock_guard lock(mutex_);
  const auto found = processes_.find(id);
  if (found == processes_.end()) return std::nullopt;
  return Told(*found->second);
}

std::vector<std::uint32_t> ProcessTable::Running(const std::wstring& path,
                                                 std::uint32_t session) const {
  std::vector<std::uint32_t> ids;
  for (const SimulatedProcess& process : List()) {
    const bool same_file = FoldCase(process.path) == FoldCase(path);
    if (same_file && process.session == session) ids.push_back(process.id);
  }
  return ids;
}

std::size_t ProcessTable::open_handles() const {
  const std::lock_guard lock(mutex_);
  return handles_.size();
}

void ProcessTable::Restart() {
  const std::lock_guard lock(mutex_);
  handles_.clear();
  processes_.clear();
  AddOwnProcess();
}

void ProcessTable::WakeAll() {
  const std::lock_guard lock(mutex_);
  ended_.notify_all();
}

void ProcessTable::EndSession(std::uint32_t session) {
  const std::lock_guard lock(mutex_);
  for (const auto& [id, process] : processes_) {
    if (process->running && process->session == session) EndNow(*process, kEndedBySignOut);
  }
}

std::vector<SimulatedProcess> ProcessTable::List() const {
  const std::lock_guard lock(mutex_);
  std::vector<SimulatedProcess> running;
  for (const auto& [id, process] : processes_) {
    if (process->running) running.push_back(Told(*process));
  }
  return running;
}

ProcessTable::Code ProcessTable::Session(std::uint32_t id, std::uint32_t& session) const {
  const std::lock_guard lock(mutex_);
  const Entry process = Existing(id);
  if (!process) return kInvalidParameter;
  session = process->session;
  return kSuccess;
}

ProcessTable::Code ProcessTable::Open(std::uint32_t id, std::uint32_t access,
                                      std::uintptr_t& handle) {
  const std::lock_guard lock(mutex_);
  const Entry process = Existing(id);
  if (!process) return kInvalidParameter;
  handle = AddHandle(process, access);
  return kSuccess;
}

ProcessTable::Code ProcessTable::Image(std::uintptr_t handle, std::wstring& path) const {
  const std::lock_guard lock(mutex_);
  Entry process;
  if (const Code code = ProcessBehind(handle, kProcessQueryLimited, process)) return code;
  if (!process->running) return kImageGone;
  path = Told(*process).path;
  return kSuccess;
}

bool ProcessTable::HasEnded(std::uintptr_t handle) const {
  const std::lock_guard lock(mutex_);
  Entry process;
  return ProcessBehind(handle, kProcessSynchronize, process) == kSuccess && !process->running;
}

ProcessTable::Code ProcessTable::Await(std::uintptr_t handle, std::uint32_t timeout_ms) {
  std::unique_lock lock(mutex_);
  Entry process;
  if (const Code code = ProcessBehind(handle, kProcessSynchronize, process)) return code;
  const auto over = [&] { return !process->running || faults_.power_lost(); };
  if (timeout_ms == kWaitForever) {
    ended_.wait(lock, over);
  } else if (clock_.held()) {
    if (!over()) clock_.Advance(timeout_ms);
  } else {
    ended_.wait_for(lock, std::chrono::milliseconds(timeout_ms), over);
  }
  if (faults_.power_lost()) return kPowerLost;
  return process->running ? kWaitTimeout : kSuccess;
}

ProcessTable::Code ProcessTable::ExitCode(std::uintptr_t handle, std::uint32_t& exit_code) const {
  const std::lock_guard lock(mutex_);
  Entry process;
  if (const Code code = ProcessBehind(handle, kProcessQueryLimited, process)) return code;
  exit_code = process->exit_code;
  return kSuccess;
}

ProcessTable::Code ProcessTable::Terminate(std::uintptr_t handle, std::uint32_t exit_code) {
  const std::lock_guard lock(mutex_);
  Entry process;
  if (const Code code = ProcessBehind(handle, kProcessTerminate, process)) return code;
  if (!process->running) return kAccessDenied;
  EndNow(*process, exit_code);
  return kSuccess;
}

void ProcessTable::Close(std::uintptr_t handle) {
  const std::lock_guard lock(mutex_);
  handles_.erase(handle);
}

ProcessTable::Code ProcessTable::Launch(SimulatedProcess process, std::uint32_t& id,
                                        std::uintptr_t& handle) {
  if (const Code code = files_.TryProgram(process.path, process.directory)) return code;
  if ((process.flags & kBreakawayFromJob) != 0) {
    const std::lock_guard lock(mutex_);
    if (breakaway_forbidden_) return kAccessDenied;
  }
  if (const Code code = files_.CountChange([] {})) return code;
  const std::lock_guard lock(mutex_);
  const Entry entry = Add(std::move(process));
  handle = AddHandle(entry, kAllAccess);
  id = entry->id;
  return kSuccess;
}

ProcessTable::Code ProcessTable::Act(const std::wstring& path, std::uint32_t id) {
  std::function<void(std::uint32_t)> action;
  {
    const std::lock_guard lock(mutex_);
    const auto found = actions_.find(FoldCase(path));
    if (found != actions_.end()) action = found->second;
  }
  if (action) {
    const AsProcess acting(id);
    action(id);
  }
  return faults_.power_lost() ? kPowerLost : kSuccess;
}

}  // namespace simulation

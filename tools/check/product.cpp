#include "tools/check/product.h"

#include <windows.h>

#include <algorithm>

#include "base/text.h"
#include "config/whole_file.h"
#include "control/frames.h"
#include "control/pipe_server.h"
#include "core/data_dir.h"
#include "core/own_service.h"
#include "filtering/filter_keys.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/service_host.h"
#include "platform/services.h"
#include "platform/system_text.h"
#include "tools/check/system_facts.h"

namespace kestrelon::check {
namespace {

constexpr std::uint32_t kLongestRunMs = 120'000;
constexpr std::uint32_t kLongestChangeS = 30;
constexpr std::uint32_t kLongestPipeS = 20;
constexpr std::uint32_t kPollSpacingMs = 50;
constexpr std::uint32_t kLargestFileBytes = 0x4000000;

std::string Content(const std::wstring& path) {
  std::string bytes;
  platform::Code code = platform::kSuccess;
  (void)ReadWholeFile(path, kLargestFileBytes, bytes, code);
  return bytes;
}

// A file for the streams of a program, which is to inherit the handle.
HANDLE OpenOutput(const std::wstring& path) {
  SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  return CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, CREATE_ALWAYS,
                     FILE_ATTRIBUTE_NORMAL, nullptr);
}

int WaitForEnd(HANDLE process) {
  if (WaitForSingleObject(process, kLongestRunMs) != WAIT_OBJECT_0) TerminateProcess(process, 1);
  DWORD code = 0;
  return GetExitCodeProcess(process, &code) ? static_cast<int>(code) : kNotStarted;
}

int RunInto(HANDLE output, std::wstring command_line) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output;
  startup.hStdError = output;
  PROCESS_INFORMATION process{};
  if (!CreateProcessW(ServiceExecutable().c_str(), command_line.data(), nullptr, nullptr, TRUE,
                      DETACHED_PROCESS, nullptr, nullptr, &startup, &process)) {
    return kNotStarted;
  }
  const int code = WaitForEnd(process.hProcess);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return code;
}

bool IsBootFilter(const platform::Filter& filter) {
  return std::ranges::find(BootFilterKeys, filter.key) != BootFilterKeys.end();
}

}  // namespace

int RunProduct(const std::wstring& arguments, std::string& output) {
  const std::wstring path = OwnDirectory() + L"\\KestrelonCheck-output.txt";
  const HANDLE file = OpenOutput(path);
  if (file == INVALID_HANDLE_VALUE) return kNotStarted;
  const int code = RunInto(file, L"\"" + ServiceExecutable() + L"\" " + arguments);
  CloseHandle(file);
  output = Content(path);
  platform::RemoveFile(path);
  return code;
}

platform::Code StartForeground(platform::StartedProgram& started) {
  platform::ProgramStart start;
  start.application = ServiceExecutable();
  start.command_line = L"\"" + start.application + L"\" --console";
  start.directory = OwnDirectory();
  start.flags = platform::kNoWindow;
  return platform::StartProgram(start, started);
}

std::vector<std::uint32_t> ProductProcesses() {
  std::vector<platform::RunningProcess> all;
  std::vector<std::uint32_t> found;
  if (platform::ListProcesses(all) != platform::kSuccess) return found;
  for (const platform::RunningProcess& running : all) {
    platform::Process process;
    std::wstring image;
    if (platform::OpenProcessById(running.id, platform::kProcessQueryLimited, process) ==
            platform::kSuccess &&
        platform::ProcessImage(process, image) == platform::kSuccess &&
        platform::EqualIgnoringCase(image, ServiceExecutable())) {
      found.push_back(running.id);
    }
  }
  return found;
}

bool EndProductProcesses() {
  const std::vector<std::uint32_t> processes = ProductProcesses();
  for (const std::uint32_t id : processes) {
    platform::Process process;
    constexpr std::uint32_t kAccess = platform::kProcessTerminate | platform::kProcessSynchronize;
    if (platform::OpenProcessById(id, kAccess, process) != platform::kSuccess) continue;
    platform::EndProcess(process, 1);
    (void)platform::AwaitProcess(process, kLongestRunMs);
  }
  return !processes.empty();
}

std::uint32_t ServiceState() {
  platform::ServiceHandle service;
  std::uint32_t state = 0;
  if (OpenOwnService(platform::kServiceQueryStatus, service) != platform::kSuccess ||
      platform::QueryServiceState(service, state) != platform::kSuccess) {
    return 0;
  }
  return state;
}

bool BringDownService() {
  platform::ServiceHandle service;
  return OpenOwnService(platform::kServiceStop, service) == platform::kSuccess &&
         platform::RequestServiceStop(service) == platform::kSuccess &&
         Within(kLongestChangeS, [] { return ServiceState() == platform::kServiceStopped; });
}

bool BringUpService() {
  platform::ServiceHandle service;
  return OpenOwnService(platform::kServiceStart, service) == platform::kSuccess &&
         platform::LaunchService(service) == platform::kSuccess &&
         Within(kLongestChangeS, [] { return ServiceState() == platform::kServiceRunning; });
}

Json Ask(const std::string& request) {
  platform::Pipe pipe;
  std::string text;
  Json reply;
  const bool answered =
      Within(
          kLongestPipeS,
          [&] { return platform::OpenPipe(kControlPipeName, true, pipe) == platform::kSuccess; }) &&
      WriteFrame(pipe, request) && ReadFrame(pipe, text);
  if (!answered || !Json::Parse(text, reply)) return {};
  return reply;
}

Json SetConfig(const std::string& config) {
  return Ask(R"({"cmd":"set_config","config":)" + config + "}");
}

std::string ServiceLog() {
  return Content(DataDir() + L"\\service.log");
}

std::vector<platform::Filter> ProductFilters() {
  constexpr std::uint32_t kBatch = 500;
  const EngineSession engine;
  std::vector<platform::Filter> found, batch;
  platform::EnumHandle enumeration = 0;
  if (engine == 0 || platform::OpenFilterEnum(engine, enumeration) != platform::kSuccess) {
    return found;
  }
  do {
    batch.clear();
    if (platform::NextFilters(engine, enumeration, kBatch, batch) != platform::kSuccess) break;
    std::ranges::copy_if(batch, std::back_inserter(found), [](const platform::Filter& filter) {
      return (filter.provider == ProviderKey || filter.sublayer == SubLayerKey) &&
             !IsBootFilter(filter);
    });
  } while (batch.size() == kBatch);
  platform::CloseFilterEnum(engine, enumeration);
  return found;
}

std::vector<platform::Filter> BootFilters() {
  const EngineSession engine;
  std::vector<platform::Filter> found;
  if (engine == 0) return found;
  for (const Guid& key : BootFilterKeys) {
    platform::Filter filter;
    if (platform::GetFilter(engine, key, filter) == platform::kSuccess) found.push_back(filter);
  }
  return found;
}

bool Within(std::uint32_t seconds, const std::function<bool()>& holds) {
  const std::uint64_t end = platform::TickMilliseconds() + std::uint64_t{seconds} * 1000;
  while (!holds()) {
    if (platform::TickMilliseconds() >= end) return false;
    platform::SleepMilliseconds(kPollSpacingMs);
  }
  return true;
}

EngineSession::EngineSession() {
  if (platform::OpenEngineSession({L"KestrelonCheck", 0, 5000}, handle_) != platform::kSuccess) {
    handle_ = 0;
  }
}

EngineSession::~EngineSession() {
  if (handle_ != 0) platform::CloseEngineSession(handle_);
}

}  // namespace kestrelon::check

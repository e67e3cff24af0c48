#include "core/service_setup.h"

#include <iterator>

#include "base/format.h"
#include "config/config_file.h"
#include "config/config_store.h"
#include "core/error_text.h"
#include "core/own_service.h"
#include "filtering/remove_filters.h"
#include "modules/firewall_exceptions.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/paths.h"
#include "platform/service_host.h"
#include "platform/services.h"

namespace kestrelon {
namespace {

using platform::Code;
using platform::ServiceHandle;

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitNotRunning = 2;

constexpr std::uint32_t kPollSpacingMs = 250;
constexpr std::uint32_t kLongestStartMs = 60000;
constexpr std::uint32_t kLongestStopMs = 30000;

constexpr const wchar_t* kDescription =
    L"Kestrelon strict whitelist firewall. Blocks all inbound and outbound network traffic except "
    L"explicitly allowed applications and rules.";
constexpr std::uint32_t kFailureResetPeriodS = 86400;
constexpr std::uint32_t kRestartDelaysMs[] = {1000, 2000, 5000};

int Failed(const wchar_t* what, Code code) {
  platform::WriteStandardError(Format(L"%s failed: %s\n", what, ErrorText(code)));
  return kExitFailure;
}

platform::ServiceRecord RecordFor(const std::wstring& executable) {
  platform::ServiceRecord record;
  record.name = kServiceName;
  record.display_name = L"Kestrelon Firewall";
  record.type = platform::kServiceOwnProcess;
  record.start = platform::kServiceStartAutomatic;
  record.error_control = platform::kServiceErrorNormal;
  record.binary_path = L"\"" + executable + L"\"";
  record.dependencies = {L"BFE"};
  return record;
}

// Polls for the state. A state that can't be read is none.
bool WaitForState(const ServiceHandle& service, std::uint32_t wanted, std::uint32_t longest_ms) {
  const std::uint64_t begin = platform::TickMilliseconds();
  for (;;) {
    std::uint32_t state = 0;
    if (platform::QueryServiceState(service, state) == platform::kSuccess && state == wanted) {
      return true;
    }
    if (platform::TickMilliseconds() - begin >= longest_ms) return false;
    platform::SleepMilliseconds(kPollSpacingMs);
  }
}

// Opens the service with the record in the manager's table, new or brought up to date. Gives the
// exit code.
int PutRecord(const platform::ServiceRecord& record, ServiceHandle& service) {
  ServiceHandle manager;
  Code code = platform::OpenServiceManager(platform::kManagerAllAccess, manager);
  if (code != platform::kSuccess) return Failed(L"OpenSCManager", code);
  code = platform::RegisterService(manager, record, service);
  if (code == platform::kSuccess) return kExitSuccess;
  if (code != platform::kServiceExists) return Failed(L"CreateService", code);
  code = platform::OpenServiceByName(manager, record.name, platform::kServiceAllAccess, service);
  if (code == platform::kSuccess) code = platform::UpdateService(service, record);
  return code == platform::kSuccess ? kExitSuccess : Failed(L"ChangeServiceConfig", code);
}

// What the service can do without.
void PutOptions(const ServiceHandle& service) {
  (void)platform::DescribeService(service, kDescription);
  platform::FailureActions actions;
  actions.reset_period_s = kFailureResetPeriodS;
  actions.restart_delays_ms.assign(std::begin(kRestartDelaysMs), std::end(kRestartDelaysMs));
  (void)platform::SetServiceFailureActions(service, actions);
  (void)platform::SetServiceFailureFlag(service, true);
}

// Asks the service to stop until it has. Once is not enough: while it starts it refuses, and would
// then come up with what it has read before.
void StopAndWait(const ServiceHandle& service) {
  const std::uint64_t begin = platform::TickMilliseconds();
  do {
    (void)platform::RequestServiceStop(service);
    if (WaitForState(service, platform::kServiceStopped, kPollSpacingMs)) return;
  } while (platform::TickMilliseconds() - begin < kLongestStopMs);
}

// Stops the service, and with the flag takes it out of the manager's table. A service that is not
// there, or is on its way out, is as good. Whether it stops does not count: one that won't is
// deleted when it ends.
Code StopOwnService(bool and_delete) {
  ServiceHandle service;
  const Code code = OpenOwnService(
      platform::kServiceStop | platform::kServiceQueryStatus | platform::kServiceDelete, service);
  if (code == platform::kServiceNotFound) return platform::kSuccess;
  if (code != platform::kSuccess) return code;
  StopAndWait(service);
  if (!and_delete) return platform::kSuccess;
  const Code deleted = platform::UnregisterService(service);
  return deleted == platform::kServiceMarkedForDelete ? platform::kSuccess : deleted;
}

bool TurnProtectionOff(std::wstring& error) {
  Config config;
  if (!LoadConfigFile(ConfigPath(), config, error)) return false;
  config.enabled = false;
  return SaveConfigWithLastGood(ConfigPath(), config, error);
}

}  // namespace

int InstallService() {
  std::wstring executable;
  Code code = platform::ExecutableFile(executable);
  if (code != platform::kSuccess) return Failed(L"GetModuleFileName", code);
  ServiceHandle service;
  const int result = PutRecord(RecordFor(executable), service);
  if (result != kExitSuccess) return result;
  PutOptions(service);
  code = platform::LaunchService(service);
  if (code != platform::kSuccess && code != platform::kServiceAlreadyRunning) {
    return Failed(L"StartService", code);
  }
  if (!WaitForState(service, platform::kServiceRunning, kLongestStartMs)) {
    platform::WriteStandardOutput(L"Kestrelon service installed (not yet running).\n");
    return kExitNotRunning;
  }
  platform::WriteStandardOutput(L"Kestrelon service installed and running.\n");
  return kExitSuccess;
}

int UninstallService() {
  if (const Code code = StopOwnService(true); code != platform::kSuccess) {
    platform::WriteStandardError(
        Format(L"Warning: could not stop/delete the service: %s\n", ErrorText(code)));
  }
  std::wstring error;
  if (!RemoveAllFilters(true, error)) {
    const int result = Failed(L"Removing filters", platform::kSuccess);
    platform::WriteStandardError(Format(L"%s\n", error));
    return result;
  }
  platform::WriteStandardOutput(
      Format(L"Kestrelon service and all of its filters were removed (%d Windows Defender Firewall "
             L"exception(s)).\n",
             RemoveFirewallExceptions()));
  return kExitSuccess;
}

int RemoveFiltersCommand() {
  std::wstring error;
  if (!TurnProtectionOff(error)) {
    // The filters come first.
    platform::WriteStandardError(Format(L"Warning: could not update config.json: %s\n", error));
  }
  (void)StopOwnService(false);
  if (!RemoveAllFilters(false, error)) {
    platform::WriteStandardError(Format(L"Removing filters failed: %s\n", error));
    return kExitFailure;
  }
  (void)StartOwnService();
  platform::WriteStandardOutput(
      L"Protection is OFF: all Kestrelon filters were removed. Turn it back on in the Kestrelon "
      L"app.\n");
  return kExitSuccess;
}

}  // namespace kestrelon

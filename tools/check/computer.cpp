#include "tools/check/computer.h"

#include <windows.h>

#include <fwpmu.h>

#include <filesystem>

#include "base/format.h"
#include "core/data_dir.h"
#include "core/error_text.h"
#include "filtering/filter_keys.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/net_events.h"
#include "platform/paths.h"
#include "platform/registry.h"
#include "platform/service_host.h"
#include "tools/check/product.h"
#include "tools/check/system_facts.h"

namespace kestrelon::check {
namespace {

constexpr const wchar_t* kOwnKey = L"SOFTWARE\\KestrelonCheck";
constexpr const wchar_t* kProductKey = L"SOFTWARE\\Kestrelon";
constexpr const wchar_t* kContractKey = L"SOFTWARE\\Kestrelon contract";

// The engine's options, which hold for the whole computer, and where they are written down.
constexpr struct {
  platform::EngineOption option;
  const wchar_t* value;
} kOptions[] = {
    {platform::kCollectNetEvents, L"CollectNetEvents"},
    {platform::kNetEventKeywords, L"NetEventKeywords"},
};

bool Exists(const std::wstring& path) {
  platform::FileInformation information;
  return platform::QueryFileInformation(path, information) == platform::kSuccess;
}

std::wstring ContractDirectory() {
  std::wstring program_data;
  if (platform::ProgramDataFolder(program_data) != platform::kSuccess) return {};
  return program_data + L"\\Kestrelon contract";
}

bool HasKey(const wchar_t* key) {
  HKEY opened = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, key, 0, KEY_READ, &opened) != ERROR_SUCCESS) return false;
  RegCloseKey(opened);
  return true;
}

// A handle of an editor's or an indexer's may keep a file for a moment.
bool RemoveDirectoryTree(const std::wstring& path) {
  return Within(5, [&] {
    std::error_code error;
    std::filesystem::remove_all(std::filesystem::path(path), error);
    return !Exists(path);
  });
}

bool RemoveKey(const wchar_t* key) {
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, key);
  return !HasKey(key);
}

bool HasSublayer() {
  const EngineSession engine;
  platform::Sublayer sublayer;
  return engine != 0 && platform::GetSublayer(engine, SubLayerKey, sublayer) == platform::kSuccess;
}

platform::Code ReadOption(platform::EngineHandle engine, platform::EngineOption option,
                          std::uint32_t& number) {
  FWP_VALUE0* value = nullptr;
  const platform::Code code = FwpmEngineGetOption0(reinterpret_cast<HANDLE>(engine),
                                                   static_cast<FWPM_ENGINE_OPTION>(option), &value);
  if (code != platform::kSuccess) return code;
  number = value->uint32;
  FwpmFreeMemory0(reinterpret_cast<void**>(&value));
  return code;
}

bool RestoreOptions() {
  const EngineSession engine;
  bool restored = true;
  for (const auto& [option, value] : kOptions) {
    std::uint32_t before = 0;
    std::uint32_t now = 0;
    if (platform::ReadRegistryDword(kOwnKey, value, before) != platform::kSuccess) continue;
    (void)platform::SetOption(engine, option, before);
    restored &= ReadOption(engine, option, now) == platform::kSuccess && now == before;
  }
  return restored;
}

}  // namespace

std::wstring WhyNotHere() {
  if (!Exists(ServiceExecutable())) return L"KestrelonSvc.exe does not lie beside this program.";
  if (ServiceState() != 0) return L"Kestrelon is installed: its service is registered.";
  if (Exists(DataDir())) return L"Kestrelon is, or was, installed: there is " + DataDir() + L".";
  if (HasKey(kProductKey)) {
    return Format(L"Kestrelon is, or was, installed: the registry has HKEY_LOCAL_MACHINE\\%s.",
                  kProductKey);
  }
  if (HasSublayer()) return L"Kestrelon is installed: the filtering engine holds its sublayer.";
  return {};
}

bool WasInterrupted() {
  return HasKey(kOwnKey);
}

platform::Code RememberComputer() {
  const EngineSession engine;
  platform::Code code = platform::WriteRegistryDword(kOwnKey, L"Running", 1);
  for (const auto& [option, value] : kOptions) {
    std::uint32_t number = 0;
    // Without an engine nothing changes its options.
    if (code != platform::kSuccess || engine == 0) break;
    code = ReadOption(engine, option, number);
    if (code == platform::kSuccess) code = platform::WriteRegistryDword(kOwnKey, value, number);
  }
  return code;
}

void RemoveProduct() {
  std::string output;
  // A run in the foreground would put back what was removed, the service's manager would start
  // again what was ended: so the service goes first, the rest after it, and the filters once more.
  if (ServiceState() != 0 || HasSublayer()) (void)RunProduct(L"--uninstall", output);
  if (EndProductProcesses()) (void)RunProduct(L"--uninstall", output);
  RemoveDirectoryTree(DataDir());
  RemoveKey(kProductKey);
}

std::vector<Finding> RestoreComputer() {
  RemoveProduct();
  const std::wstring contract = ContractDirectory();
  std::vector<Finding> findings = {
      {ServiceState() == 0 && ProductProcesses().empty(), L"No service and no process is left."},
      {!HasSublayer() && ProductFilters().empty() && BootFilters().empty(),
       L"The filtering engine holds nothing of Kestrelon's."},
      {!Exists(DataDir()) && RemoveDirectoryTree(contract),
       L"Its directory, and that of the cases, are gone from the program data."},
      {!HasKey(kProductKey) && RemoveKey(kContractKey), L"So are its values in the registry."},
      {RestoreOptions(), L"The filtering engine's options are as they were."},
  };
  bool restored = true;
  for (const Finding& finding : findings) restored &= finding.good;
  if (restored) {
    RemoveKey(kOwnKey);
  } else {
    findings.push_back(
        {false,
         L"Run this check again: it begins with what is left. Filters that are still "
         L"in force go with KestrelonSvc.exe --uninstall, as an administrator."});
  }
  return findings;
}

}  // namespace kestrelon::check

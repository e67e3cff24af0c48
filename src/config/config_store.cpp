#include "config/config_store.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "base/format.h"
#include "config/config_file.h"
#include "config/presets.h"
#include "core/data_dir.h"
#include "core/error_text.h"
#include "core/service_log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/registry.h"

namespace kestrelon {
namespace {

constexpr const wchar_t* kLastGoodSuffix = L".lastgood";
constexpr const wchar_t* kBadSuffix = L".bad";
constexpr const wchar_t* kRegistryKey = L"SOFTWARE\\Kestrelon";
constexpr const wchar_t* kCreatedValue = L"ConfigCreated";
constexpr std::size_t kBackupsKept = 10;

// The stamp in "config-YYYYMMDD-hhmmss.json".
constexpr std::size_t kStampPosition = 7;
constexpr std::size_t kStampLength = 15;

std::wstring BackupDirectory() {
  return DataDir() + L"\\backups";
}

bool FileExists(const std::wstring& path) {
  platform::FileInformation information;
  return platform::QueryFileInformation(path, information) == platform::kSuccess;
}

// Names of the backups, oldest first: the stamp in a name sorts as its time does. Any other file
// of the pattern counts as one.
std::vector<std::wstring> BackupNames() {
  std::vector<platform::FoundFile> found;
  std::vector<std::wstring> names;
  if (platform::FindFiles(BackupDirectory() + L"\\config-*.json",
                          std::numeric_limits<std::size_t>::max(), found) != platform::kSuccess) {
    return names;
  }
  for (platform::FoundFile& file : found) names.push_back(std::move(file.name));
  std::sort(names.begin(), names.end());
  return names;
}

// The time of a backup as people read it, or what stands in its place in an odd name.
std::wstring SourceOfBackup(const std::wstring& name) {
  const std::wstring stamp = name.size() >= kStampPosition + kStampLength
                                 ? name.substr(kStampPosition, kStampLength)
                                 : name;
  if (stamp.size() != kStampLength) return stamp;
  return stamp.substr(0, 4) + L"-" + stamp.substr(4, 2) + L"-" + stamp.substr(6, 2) + L" " +
         stamp.substr(9, 2) + L":" + stamp.substr(11, 2) + L":" + stamp.substr(13, 2);
}

void SaveLastGood(const std::wstring& path, const Config& config) {
  std::wstring error;
  if (!SaveConfigFile(path + kLastGoodSuffix, config, error)) {
    LogService(L"Cannot save the last working configuration: %s", error);
  }
}

// Whether a configuration has ever existed on this machine; survives the deletion of the files.
bool ConfigCreatedIsSet() {
  std::uint32_t value = 0;
  return platform::ReadRegistryDword(kRegistryKey, kCreatedValue, value) == platform::kSuccess &&
         value == 1;
}

void SetConfigCreated() {
  if (ConfigCreatedIsSet()) return;
  const platform::Code code = platform::WriteRegistryDword(kRegistryKey, kCreatedValue, 1);
  if (code != platform::kSuccess) {
    LogService(L"Cannot write %s\\ConfigCreated: %s", kRegistryKey, ErrorText(code));
  }
}

void StartWithDefault(Config& config) {
  config = DefaultConfig();
  std::wstring error;
  if (SaveConfigWithLastGood(ConfigPath(), config, error)) {
    SetConfigCreated();
  } else {
    LogService(L"Cannot write default configuration: %s", error);
  }
  LogService(L"Created default configuration (strict whitelist)");
}

void StartRestored(const Config& config, const std::wstring& source) REQUIRES(ConfigGuard) {
  LogService(L"Configuration restored from %s",
             source == L"lastgood" ? L"the last working copy" : L"the backup of " + source);
  std::wstring error;
  if (SaveConfigWithLastGood(ConfigPath(), config, error)) {
    SetConfigCreated();
  } else {
    LogService(L"Cannot write the restored configuration: %s", error);
  }
  Core.FallbackKind = L"restored";
  Core.FallbackFrom = source;
}

void StartStrict(Config& config) REQUIRES(ConfigGuard) {
  config = DefaultConfig();
  for (RuleEntry& rule : config.rules) rule.enabled = false;
  config.enabled = true;
  config.allow_loopback = true;
  config.boot_time_filter = true;
  std::wstring error;
  if (SaveConfigFile(ConfigPath(), config, error)) {
    SetConfigCreated();
  } else {
    LogService(L"Cannot write the strict configuration: %s", error);
  }
  LogService(L"Strict fallback: all traffic blocked except loopback");
  Core.FallbackKind = L"strict";
}

void Recover(Config& config, const wchar_t* cause) REQUIRES(ConfigGuard) {
  Core.FallbackCause = cause;
  std::wstring source;
  if (RestoreConfig(config, source)) {
    StartRestored(config, source);
  } else {
    StartStrict(config);
  }
}

}  // namespace

std::wstring ConfigPath() {
  return DataDir() + L"\\config.json";
}

void ObtainStartConfig(Config& config) {
  const std::wstring path = ConfigPath();
  if (FileExists(path)) {
    std::wstring error;
    if (LoadConfigFile(path, config, error)) {
      SetConfigCreated();
      SaveLastGood(path, config);
      return;
    }
    LogService(L"Configuration is unreadable (%s) - moving it to config.json.bad", error);
    (void)platform::RenameFile(path, path + kBadSuffix, platform::kReplaceExisting);
    Recover(config, L"corrupt");
  } else if (ConfigCreatedIsSet()) {
    // Deleting the file must not bring back the openings of a fresh installation.
    LogService(L"Configuration file is missing although it existed before");
    Recover(config, L"missing");
  } else {
    StartWithDefault(config);
  }
}

bool SaveConfig(const Config& config, std::wstring& error) {
  if (Core.FallbackKind == L"strict") return SaveConfigFile(ConfigPath(), config, error);
  return SaveConfigWithLastGood(ConfigPath(), config, error);
}

bool SaveCurrentConfig() {
  std::wstring error;
  if (SaveConfig(Core.CurrentConfig, error)) return true;
  LogService(L"Cannot save configuration: %s", error);
  return false;
}

bool SaveConfigWithLastGood(const std::wstring& path, const Config& config, std::wstring& error) {
  if (!SaveConfigFile(path, config, error)) return false;
  SaveLastGood(path, config);
  return true;
}

void BackupConfig() {
  const std::wstring path = ConfigPath();
  if (!FileExists(path)) return;
  const std::wstring directory = BackupDirectory();
  (void)platform::MakeDirectory(directory);
  const auto now = platform::LocalTime().value_or(platform::CalendarTime{});
  const std::wstring name = Format(L"\\config-%04u%02u%02u-%02u%02u%02u.json", now.year, now.month,
                                   now.day, now.hour, now.minute, now.second);
  const platform::Code code = platform::DuplicateFile(path, directory + name);
  if (code != platform::kSuccess) {
    LogService(L"Cannot back up the configuration: %s", ErrorText(code));
    return;
  }
  const std::vector<std::wstring> names = BackupNames();
  for (std::size_t i = 0; i + kBackupsKept < names.size(); ++i) {
    (void)platform::RemoveFile(directory + L"\\" + names[i]);
  }
}

bool RestoreConfig(Config& config, std::wstring& source) {
  std::wstring ignored;  // a copy that doesn't load is passed over without a word
  if (LoadConfigFile(ConfigPath() + kLastGoodSuffix, config, ignored)) {
    source = L"lastgood";
    return true;
  }
  std::vector<std::wstring> names = BackupNames();
  std::reverse(names.begin(), names.end());
  for (const std::wstring& name : names) {
    if (!LoadConfigFile(BackupDirectory() + L"\\" + name, config, ignored)) continue;
    source = SourceOfBackup(name);
    return true;
  }
  return false;
}

}  // namespace kestrelon

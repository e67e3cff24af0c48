#include "updates/update_settings.h"

#include "platform/clock.h"
#include "platform/registry.h"

namespace kestrelon {
namespace {

using platform::kSuccess;

constexpr const wchar_t* kProductKey = L"SOFTWARE\\Kestrelon";
constexpr const wchar_t* kUpdateSettings = L"SOFTWARE\\Kestrelon\\Update";

constexpr const wchar_t* kUpdateChannel = L"UpdateChannel";
constexpr const wchar_t* kLastCheck = L"LastCheck";
constexpr const wchar_t* kPendingBuild = L"PendingBuild";
constexpr const wchar_t* kPendingVersion = L"PendingVersion";
constexpr const wchar_t* kPendingTime = L"PendingTime";
constexpr const wchar_t* kPendingSession = L"PendingSession";
constexpr const wchar_t* kHelperExit = L"HelperExit";
constexpr const wchar_t* kLastInstallVersion = L"LastInstallVersion";
constexpr const wchar_t* kLastInstallResult = L"LastInstallResult";
constexpr const wchar_t* kLastInstallDetail = L"LastInstallDetail";
constexpr const wchar_t* kLastInstallTime = L"LastInstallTime";

// Bytes, with the closing null. The texts are the product's own and much shorter.
constexpr std::uint32_t kLongestChannel = 64;
constexpr std::uint32_t kLongestText = 1024;

// What is absent or unreadable is 0 or empty.

std::int64_t ReadTime(const wchar_t* name) {
  std::uint64_t time = 0;
  (void)platform::ReadRegistryQword(kUpdateSettings, name, time);
  return static_cast<std::int64_t>(time);
}

std::wstring ReadText(const wchar_t* name) {
  std::wstring text;
  (void)platform::ReadRegistryText(kUpdateSettings, name, kLongestText, text);
  return text;
}

// A value that can't be written is missing from what is told later; nothing depends on it.

void WriteTime(const wchar_t* name, std::int64_t time) {
  (void)platform::WriteRegistryQword(kUpdateSettings, name, static_cast<std::uint64_t>(time));
}

void WriteText(const wchar_t* name, const std::wstring& text) {
  (void)platform::WriteRegistryText(kUpdateSettings, name, text);
}

}  // namespace

std::wstring UpdateChannel() {
  std::wstring channel;
  (void)platform::ReadRegistryText(kProductKey, kUpdateChannel, kLongestChannel, channel);
  return channel == L"test" ? L"test" : L"stable";
}

// One from the future, written while the clock was ahead, would put off the next check for long.
std::int64_t StoredLastCheck() {
  const std::int64_t time = ReadTime(kLastCheck);
  return time < 0 || time > platform::SystemTime() ? 0 : time;
}

void StoreLastCheck(std::int64_t time) {
  WriteTime(kLastCheck, time);
}

// The build stands for the whole: it is written last and deleted first, so that an installation is
// there with all its values or not at all.
platform::Code StorePendingInstall(const PendingInstall& pending) {
  const platform::Code code = platform::DeleteRegistryValue(kUpdateSettings, kHelperExit);
  if (code != kSuccess && code != platform::kFileNotFound) return code;
  WriteText(kPendingVersion, pending.version);
  WriteTime(kPendingTime, pending.time);
  (void)platform::WriteRegistryDword(kUpdateSettings, kPendingSession, pending.session);
  return platform::WriteRegistryDword(kUpdateSettings, kPendingBuild, pending.build);
}

std::optional<PendingInstall> StoredPendingInstall() {
  PendingInstall pending;
  if (platform::ReadRegistryDword(kUpdateSettings, kPendingBuild, pending.build) != kSuccess) {
    return std::nullopt;
  }
  pending.version = ReadText(kPendingVersion);
  pending.time = ReadTime(kPendingTime);
  (void)platform::ReadRegistryDword(kUpdateSettings, kPendingSession, pending.session);
  return pending;
}

void ForgetPendingInstall() {
  for (const wchar_t* name :
       {kPendingBuild, kPendingVersion, kPendingTime, kPendingSession, kHelperExit}) {
    platform::DeleteRegistryValue(kUpdateSettings, name);
  }
}

void StoreHelperExit(std::uint32_t code) {
  (void)platform::WriteRegistryDword(kUpdateSettings, kHelperExit, code);
}

std::optional<std::uint32_t> StoredHelperExit() {
  std::uint32_t code = 0;
  if (platform::ReadRegistryDword(kUpdateSettings, kHelperExit, code) != kSuccess)
    return std::nullopt;
  return code;
}

void StoreLastInstall(const LastInstall& last) {
  WriteText(kLastInstallVersion, last.version);
  WriteText(kLastInstallResult, last.result);
  WriteText(kLastInstallDetail, last.detail);
  WriteTime(kLastInstallTime, last.time);
}

LastInstall StoredLastInstall() {
  return {ReadText(kLastInstallVersion), ReadText(kLastInstallResult), ReadText(kLastInstallDetail),
          ReadTime(kLastInstallTime)};
}

}  // namespace kestrelon

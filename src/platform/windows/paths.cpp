#include "platform/paths.h"

#include "platform/windows/owned.h"

#include <shlobj.h>

#include <array>
#include <cwchar>

namespace kestrelon::platform {
namespace {

constexpr DWORD kLongestPath = 32768;
constexpr DWORD kDriveListRoom = 512;
constexpr DWORD kDeviceRoom = 1024;

void FreeTaskMemory(void* memory) {
  CoTaskMemFree(memory);
}

}  // namespace

Code ProgramDataFolder(std::wstring& path) {
  Owned<PWSTR, FreeTaskMemory> folder;
  const HRESULT result =
      SHGetKnownFolderPath(FOLDERID_ProgramData, KF_FLAG_DEFAULT, nullptr, folder.Receive());
  if (FAILED(result)) return static_cast<Code>(result);
  path = folder.get();
  return kSuccess;
}

Code ExecutableFile(std::wstring& path) {
  std::wstring buffer(kLongestPath, L'\0');
  const DWORD length = GetModuleFileNameW(nullptr, buffer.data(), kLongestPath);
  if (length == 0) return GetLastError();
  if (length >= kLongestPath) return kInsufficientBuffer;
  path.assign(buffer, 0, length);
  return kSuccess;
}

Code ExpandEnvironment(const std::wstring& text, std::wstring& expanded) {
  const DWORD room = ExpandEnvironmentStringsW(text.c_str(), nullptr, 0);
  if (room == 0) return GetLastError();
  std::wstring buffer(room, L'\0');
  const DWORD size = ExpandEnvironmentStringsW(text.c_str(), buffer.data(), room);
  if (size == 0) return GetLastError();
  // The environment grew between the two calls.
  if (size > room) return kInsufficientBuffer;
  expanded.assign(buffer, 0, size - 1);
  return kSuccess;
}

Code LogicalDrives(std::vector<std::wstring>& roots) {
  // One more than is told to the platform, so that the list is closed in any case.
  std::array<wchar_t, kDriveListRoom + 1> list{};
  const DWORD length = GetLogicalDriveStringsW(kDriveListRoom, list.data());
  if (length == 0) return GetLastError();
  if (length > kDriveListRoom) return kInsufficientBuffer;
  roots.clear();
  for (const wchar_t* root = list.data(); *root != 0; root += std::wcslen(root) + 1) {
    roots.emplace_back(root);
  }
  return kSuccess;
}

Code DeviceOfDrive(const std::wstring& drive, std::wstring& device) {
  std::array<wchar_t, kDeviceRoom> targets{};
  if (QueryDosDeviceW(drive.c_str(), targets.data(), kDeviceRoom) == 0) return GetLastError();
  // The first of the texts is the target in force.
  device = targets.data();
  return kSuccess;
}

}  // namespace kestrelon::platform

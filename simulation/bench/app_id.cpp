#include "simulation/bench/app_id.h"

#include <windows.h>

#include "base/text.h"

namespace simulation {

using kestrelon::Utf16BytesWithNull;
using kestrelon::platform::Code;
using kestrelon::platform::kInvalidParameter;
using kestrelon::platform::kSuccess;

namespace {

constexpr DWORD kDeviceNameRoom = 1024;

bool HasDrive(const std::wstring& path) {
  return path.size() >= 3 && path[1] == L':' && path[2] == L'\\';
}

Code DevicePath(std::wstring path, std::wstring& device_path) {
  if (path.rfind(L"\\\\?\\", 0) == 0) path.erase(0, 4);
  if (path.rfind(L"\\\\", 0) == 0) {
    device_path = L"\\device\\mup" + path.substr(1);
    return kSuccess;
  }
  if (!HasDrive(path)) return kInvalidParameter;
  wchar_t device[kDeviceNameRoom];
  if (QueryDosDeviceW(path.substr(0, 2).c_str(), device, kDeviceNameRoom) == 0) {
    return GetLastError();
  }
  device_path = device + path.substr(2);
  return kSuccess;
}

}  // namespace

Code AppIdOfPath(const std::wstring& path, Bytes& app_id) {
  std::wstring device_path;
  if (const Code code = DevicePath(path, device_path)) return code;
  CharLowerBuffW(device_path.data(), static_cast<DWORD>(device_path.size()));
  app_id = Utf16BytesWithNull(device_path);
  return kSuccess;
}

Code AppIdOfExistingFile(const std::wstring& path, Bytes& app_id) {
  if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES) return GetLastError();
  return AppIdOfPath(path, app_id);
}

Bytes AppIdOfKernel() {
  return Utf16BytesWithNull(L"System");
}

}  // namespace simulation

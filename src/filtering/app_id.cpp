#include "filtering/app_id.h"

#include "base/text.h"
#include "config/app_reference.h"
#include "identity/paths.h"
#include "platform/paths.h"
#include "platform/system_text.h"
#include "platform/wfp.h"

namespace kestrelon {
namespace {

// The path with its drive, or the mark of a network share, replaced by the device. Empty when the
// drive is unknown.
std::wstring DevicePath(const std::wstring& path) {
  if (path.starts_with(L"\\\\")) return L"\\device\\mup\\" + path.substr(2);
  if (path.size() < 3 || path[1] != L':') return path;
  std::wstring device;
  if (platform::DeviceOfDrive(path.substr(0, 2), device) != platform::kSuccess) return {};
  return device + path.substr(2);
}

}  // namespace

bool AppIdFor(const std::wstring& path, platform::Bytes& app_id) {
  if (IsSystemApp(path)) {
    app_id = Utf16BytesWithNull(L"System");
    return true;
  }
  const std::wstring expanded = ExpandPath(path);
  platform::Bytes found;
  if (platform::AppIdOfFile(expanded, found) == platform::kSuccess) {
    app_id = std::move(found);
    return true;
  }
  const std::wstring device_path = platform::LowerCase(DevicePath(expanded));
  if (device_path.empty()) return false;
  app_id = Utf16BytesWithNull(device_path);
  return true;
}

}  // namespace kestrelon

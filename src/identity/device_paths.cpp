#include "identity/device_paths.h"

#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/guard.h"
#include "identity/paths.h"
#include "platform/paths.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

// The device of the network redirector: behind it stand server and share.
constexpr std::wstring_view kNetworkDevice = L"\\device\\mup\\";
constexpr std::size_t kMostCachedPaths = 2000;

// A leaf, held for the map operations only; the platform is asked outside it.
Guard DevicePathGuard("DevicePathGuard", GuardRank::kLeaf);
std::unordered_map<std::wstring, std::wstring> DevicePathCache GUARDED_BY(DevicePathGuard);

bool FindCached(const std::wstring& device_path, std::wstring& path) {
  GuardLock lock(DevicePathGuard);
  const auto found = DevicePathCache.find(device_path);
  if (found == DevicePathCache.end()) return false;
  path = found->second;
  return true;
}

// Starting over when full needs no bookkeeping of age, and few machines ever get there.
void StoreCached(const std::wstring& device_path, const std::wstring& path) {
  GuardLock lock(DevicePathGuard);
  if (DevicePathCache.size() >= kMostCachedPaths) DevicePathCache.clear();
  DevicePathCache.insert_or_assign(device_path, path);
}

// The text with the first drive whose device it begins with. A device must end at a backslash:
// volume 1 is not to be taken for volume 10.
std::wstring WithDriveName(const std::wstring& device_path) {
  std::vector<std::wstring> roots;
  if (platform::LogicalDrives(roots) != platform::kSuccess) return device_path;
  for (const std::wstring& root : roots) {
    const std::wstring drive = root.substr(0, 2);
    std::wstring device;
    if (platform::DeviceOfDrive(drive, device) != platform::kSuccess) continue;
    if (device_path.size() > device.size() && device_path[device.size()] == L'\\' &&
        platform::StartsWithIgnoringCase(device_path, device)) {
      return drive + device_path.substr(device.size());
    }
  }
  return device_path;
}

std::wstring Translate(const std::wstring& device_path) {
  if (!device_path.starts_with(L'\\')) return device_path;
  if (platform::StartsWithIgnoringCase(device_path, kNetworkDevice)) {
    return L"\\\\" + device_path.substr(kNetworkDevice.size());
  }
  return WithDriveName(device_path);
}

// Other texts, such as "System", name no file; opening them would look in the working directory.
bool NamesFile(const std::wstring& path) {
  return path.size() > 2 && (path[1] == L':' || path[0] == L'\\');
}

}  // namespace

std::wstring DeviceToWin32(const std::wstring& device_path) {
  std::wstring path;
  if (FindCached(device_path, path)) return path;
  path = Translate(device_path);
  if (NamesFile(path)) path = NormalizePath(path);
  StoreCached(device_path, path);
  return path;
}

}  // namespace kestrelon

#include "platform/change_notification.h"

#include <array>

#include "platform/windows/event_state.h"

namespace kestrelon::platform {
namespace {

static_assert(kMostWatchesInWait + 1 == MAXIMUM_WAIT_OBJECTS);

HANDLE NativeHandle(const DirectoryWatch& watch) {
  return reinterpret_cast<HANDLE>(watch.handle());
}

}  // namespace

void CloseWatch(std::uintptr_t handle) {
  FindCloseChangeNotification(reinterpret_cast<HANDLE>(handle));
}

Code WatchDirectory(const std::wstring& directory, std::uint32_t filter, DirectoryWatch& watch) {
  const HANDLE handle = FindFirstChangeNotificationW(directory.c_str(), FALSE, filter);
  if (handle == INVALID_HANDLE_VALUE) return GetLastError();
  watch.Adopt(reinterpret_cast<std::uintptr_t>(handle));
  return kSuccess;
}

Code ContinueWatch(const DirectoryWatch& watch) {
  return FindNextChangeNotification(NativeHandle(watch)) ? kSuccess : GetLastError();
}

int WaitForChange(const Event& stop, const std::vector<DirectoryWatch>& watches) {
  if (watches.size() > kMostWatchesInWait) return kWaitFailed;
  std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> handles{stop.state().handle.get()};
  DWORD count = 1;
  for (const DirectoryWatch& watch : watches) handles[count++] = NativeHandle(watch);
  const DWORD result = WaitForMultipleObjects(count, handles.data(), FALSE, INFINITE);
  // WAIT_OBJECT_0 is 0.
  return result < count ? static_cast<int>(result) : kWaitFailed;
}

}  // namespace kestrelon::platform

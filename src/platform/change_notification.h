// Signals that something in a directory changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/codes.h"
#include "platform/handle.h"
#include "platform/wait.h"

namespace kestrelon::platform {

enum NotifyFilter : std::uint32_t {
  kNotifyFileName = 0x1,
  kNotifyDirectoryName = 0x2,
  kNotifyAttributes = 0x4,
  kNotifySize = 0x8,
  kNotifyLastWrite = 0x10,
  kNotifySecurity = 0x100,
};

// A watch on one directory. It is used on one thread: the platform ends a watch with the thread
// that began or last continued it.
void CloseWatch(std::uintptr_t handle);
using DirectoryWatch = Handle<&CloseWatch>;

// Begins to watch a directory, without what is below it, for changes of the kinds in `filter`. The
// watch follows the directory when it is renamed. `watch` is changed on success only.
[[nodiscard]] Code WatchDirectory(const std::wstring& directory, std::uint32_t filter,
                                  DirectoryWatch& watch);

// Takes up a signal: the watch is signalled again by what happened since the last signal or happens
// from now on. Fails when the directory was removed.
[[nodiscard]] Code ContinueWatch(const DirectoryWatch& watch);

// At most so many watches can be waited for at a time.
inline constexpr std::size_t kMostWatchesInWait = 63;

// Blocks until `stop` is set or a watch is signalled: 0 for `stop`, i + 1 for watches[i], or
// kWaitFailed. The first of several in this order. A watch stays signalled until it is continued.
int WaitForChange(const Event& stop, const std::vector<DirectoryWatch>& watches);

}  // namespace kestrelon::platform

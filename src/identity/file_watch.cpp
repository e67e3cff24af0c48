// A watch ends with the thread that began it, so each thread opens the watches that it waits for.
#include "identity/file_watch.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <set>
#include <thread>
#include <utility>

#include "base/guard.h"
#include "base/start_thread.h"
#include "config/app_reference.h"
#include "core/core_state.h"
#include "identity/file_identity.h"
#include "identity/paths.h"
#include "platform/change_notification.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

using platform::DirectoryWatch;

constexpr std::uint32_t kWatchedChanges =
    platform::kNotifyFileName | platform::kNotifyDirectoryName | platform::kNotifyAttributes |
    platform::kNotifySize | platform::kNotifyLastWrite | platform::kNotifySecurity;

using DirectorySet = std::set<std::wstring>;  // lower case

// A leaf, held while the watch threads are joined: none of them ever takes it.
Guard WatchGuard("WatchGuard", GuardRank::kLeaf);
DirectorySet WatchedDirectories GUARDED_BY(WatchGuard);
platform::Event* ChangeEvent GUARDED_BY(WatchGuard) = nullptr;
std::vector<std::thread> WatchThreads GUARDED_BY(WatchGuard);
// Ends the threads that run now; null while there are none.
std::unique_ptr<platform::Event> ThreadsStop GUARDED_BY(WatchGuard);

// What one thread watches; names and watches in step.
struct WatchList {
  std::vector<std::wstring> names;
  std::vector<DirectoryWatch> watches;

  // Puts the i-th last: the wait tells the first of several, and a directory in which something
  // always happens must not hide the others.
  void PutLast(std::ptrdiff_t i) {
    std::rotate(names.begin() + i, names.begin() + i + 1, names.end());
    std::rotate(watches.begin() + i, watches.begin() + i + 1, watches.end());
  }
  void DropLast() {
    names.pop_back();
    watches.pop_back();
  }
};

// A directory that can't be watched is left to the periodic check.
WatchList BeginWatches(const std::vector<std::wstring>& directories) {
  WatchList list;
  for (const std::wstring& directory : directories) {
    DirectoryWatch watch;
    // A drive without the backslash would be the process's current directory on it.
    const bool is_drive = directory.ends_with(L':');
    const std::wstring path = is_drive ? directory + L"\\" : directory;
    if (platform::WatchDirectory(path, kWatchedChanges, watch) != platform::kSuccess) continue;
    list.names.push_back(directory);
    list.watches.push_back(std::move(watch));
  }
  return list;
}

// The hook comes first: it blocks what has changed.
void HeedChange(const std::wstring& directory, platform::Event* event) {
  if (const auto hook = Core.DirectoryChangedHook.load()) hook(directory);
  MarkIdentitiesStale(directory);
  if (event != nullptr) event->Set();
}

void WatchThread(const platform::Event& stop, platform::Event& begun, platform::Event* event,
                 const std::vector<std::wstring>& directories) {
  WatchList list = BeginWatches(directories);
  begun.Set();
  while (!list.names.empty()) {
    const int signalled = platform::WaitForChange(stop, list.watches);
    if (signalled == 0) return;
    if (signalled < 0) {  // all of them are lost
      Core.WatchRebuildPending = true;
      return;
    }
    list.PutLast(signalled - 1);
    HeedChange(list.names.back(), event);
    if (platform::ContinueWatch(list.watches.back()) != platform::kSuccess) {
      // The directory was removed; the rebuild takes it up again if it has come back.
      Core.WatchRebuildPending = true;
      list.DropLast();
    }
  }
}

// The parents of the files but for the system's own directory, where nothing is permitted by its
// hash and much happens.
DirectorySet ParentsOf(const std::vector<std::wstring>& paths) {
  const std::wstring system = platform::LowerCase(ExpandPath(L"%SystemRoot%")) + L"\\";
  DirectorySet directories;
  for (const std::wstring& path : paths) {
    const std::wstring expanded = IsSystemApp(path) ? KernelImagePath() : ExpandPath(path);
    const std::wstring file = platform::LowerCase(expanded);
    if (file.starts_with(system)) continue;
    std::wstring directory = ParentDirectory(file);
    if (!directory.empty()) directories.insert(std::move(directory));
  }
  return directories;
}

void StopThreads() REQUIRES(WatchGuard) {
  if (ThreadsStop) ThreadsStop->Set();
  for (std::thread& thread : WatchThreads) thread.join();
  WatchThreads.clear();
  ThreadsStop.reset();
}

// Starts the threads and waits until they watch: what happens from then on is met. A thread that
// can't be started leaves its directories unwatched: the next pass tries again.
void StartThreads() REQUIRES(WatchGuard) {
  ThreadsStop = std::make_unique<platform::Event>(platform::Event::Reset::kManual);
  const platform::Event& stop = *ThreadsStop;
  platform::Event* const event = ChangeEvent;
  std::vector<std::shared_ptr<platform::Event>> all_begun;
  auto next = WatchedDirectories.begin();
  while (next != WatchedDirectories.end()) {
    std::vector<std::wstring> directories;
    while (next != WatchedDirectories.end() && directories.size() < platform::kMostWatchesInWait) {
      directories.push_back(*next++);
    }
    const auto begun = std::make_shared<platform::Event>(platform::Event::Reset::kManual);
    std::thread thread;
    if (StartThread(thread, [&stop, begun, event, directories = std::move(directories)] {
          WatchThread(stop, *begun, event, directories);
        })) {
      WatchThreads.push_back(std::move(thread));
      all_begun.push_back(begun);
    } else {
      Core.WatchRebuildPending = true;
    }
  }
  for (const auto& begun : all_begun) {
    (void)platform::WaitForAny({begun.get()}, platform::kWaitForever);
  }
}

}  // namespace

void SyncFileWatch(const std::vector<std::wstring>& paths, platform::Event* event) {
  DirectorySet directories = ParentsOf(paths);
  GuardLock lock(WatchGuard);
  const bool unchanged = directories == WatchedDirectories && event == ChangeEvent;
  if (unchanged && !Core.WatchRebuildPending) return;
  Core.WatchRebuildPending = false;
  StopThreads();
  WatchedDirectories = std::move(directories);
  ChangeEvent = event;
  if (!WatchedDirectories.empty()) StartThreads();
}

}  // namespace kestrelon

#include "simulation/machine/directory_watches.h"

#include <algorithm>
#include <chrono>
#include <set>

namespace simulation {
namespace {

using kestrelon::platform::kAccessDenied;
using kestrelon::platform::kInvalidHandle;
using kestrelon::platform::kMostWatchesInWait;
using kestrelon::platform::kSuccess;
using kestrelon::platform::kWaitFailed;

constexpr std::chrono::seconds kLongestWait(10);

}  // namespace

std::size_t DirectoryWatches::open_watches() const {
  const std::lock_guard lock(hub_.mutex);
  return watches_.size();
}

std::size_t DirectoryWatches::begun_watches() const {
  const std::lock_guard lock(hub_.mutex);
  return last_handle_;
}

std::size_t DirectoryWatches::waiting_threads() const {
  const std::lock_guard lock(hub_.mutex);
  std::set<std::thread::id> threads;
  for (const auto& [handle, watch] : watches_) {
    if (watch.waited_for) threads.insert(watch.watcher);
  }
  return threads.size();
}

void DirectoryWatches::WaitForWatchers() {
  const std::thread::id self = std::this_thread::get_id();
  std::unique_lock lock(hub_.mutex);
  (void)hub_.changed.wait_for(lock, kLongestWait, [&] {
    return std::none_of(watches_.begin(), watches_.end(), [&](const auto& entry) {
      const Watch& watch = entry.second;
      if (watch.watcher == std::thread::id() || watch.watcher == self) return false;
      return watch.signalled || !watch.waited_for;
    });
  });
}

bool DirectoryWatches::WaitForOpen(std::size_t count) {
  std::unique_lock lock(hub_.mutex);
  return hub_.changed.wait_for(lock, kLongestWait, [&] {
    return watches_.size() == count &&
           std::all_of(watches_.begin(), watches_.end(),
                       [](const auto& entry) { return entry.second.waited_for; });
  });
}

void DirectoryWatches::Signal(const FileNode& directory, std::uint32_t kinds) {
  const std::lock_guard lock(hub_.mutex);
  for (auto& [handle, watch] : watches_) {
    if (watch.directory.get() != &directory || (watch.filter & kinds) == 0) continue;
    watch.pending = watch.signalled;
    watch.signalled = true;
  }
  hub_.changed.notify_all();
}

void DirectoryWatches::Lose(const FileNode& removed) {
  const std::lock_guard lock(hub_.mutex);
  for (auto& [handle, watch] : watches_) {
    if (!watch.directory->IsWithin(removed)) continue;
    watch.lost = true;
    watch.signalled = true;
  }
  hub_.changed.notify_all();
}

void DirectoryWatches::DropHandles() {
  const std::lock_guard lock(hub_.mutex);
  watches_.clear();
  hub_.changed.notify_all();
}

std::uintptr_t DirectoryWatches::Begin(std::shared_ptr<FileNode> directory, std::uint32_t filter) {
  const std::lock_guard lock(hub_.mutex);
  Watch& watch = watches_[++last_handle_];
  watch.directory = std::move(directory);
  watch.filter = filter;
  return last_handle_;
}

void DirectoryWatches::Close(std::uintptr_t handle) {
  const std::lock_guard lock(hub_.mutex);
  watches_.erase(handle);
  hub_.changed.notify_all();
}

Code DirectoryWatches::Continue(std::uintptr_t handle) {
  const std::lock_guard lock(hub_.mutex);
  const auto found = watches_.find(handle);
  if (found == watches_.end()) return kInvalidHandle;
  Watch& watch = found->second;
  if (watch.lost) return kAccessDenied;
  watch.signalled = watch.pending;
  watch.pending = false;
  hub_.changed.notify_all();
  return kSuccess;
}

int DirectoryWatches::Wait(const kestrelon::platform::Event& stop,
                           const std::vector<std::uintptr_t>& handles) {
  if (handles.size() > kMostWatchesInWait) return kWaitFailed;
  std::unique_lock lock(hub_.mutex);
  SetWatcher(handles, std::this_thread::get_id(), true);
  hub_.changed.notify_all();
  std::optional<int> outcome;
  hub_.changed.wait(lock, [&] { return (outcome = Outcome(stop, handles)).has_value(); });
  const bool took_signal = *outcome > 0;
  SetWatcher(handles, took_signal ? std::this_thread::get_id() : std::thread::id(), false);
  hub_.changed.notify_all();
  return *outcome;
}

std::optional<int> DirectoryWatches::Outcome(const kestrelon::platform::Event& stop,
                                             const std::vector<std::uintptr_t>& handles) const {
  for (const std::uintptr_t handle : handles) {
    if (watches_.count(handle) == 0) return kWaitFailed;
  }
  if (stop.state().Take()) return 0;
  for (std::size_t i = 0; i < handles.size(); ++i) {
    if (watches_.at(handles[i]).signalled) return static_cast<int>(i) + 1;
  }
  return std::nullopt;
}

void DirectoryWatches::SetWatcher(const std::vector<std::uintptr_t>& handles,
                                  std::thread::id watcher, bool waits) {
  for (const std::uintptr_t handle : handles) {
    const auto found = watches_.find(handle);
    if (found == watches_.end()) continue;
    found->second.watcher = watcher;
    found->second.waited_for = waits;
  }
}

}  // namespace simulation

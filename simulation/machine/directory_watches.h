// Watches on directories, and the threads that wait for them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "platform/change_notification.h"
#include "simulation/machine/file_node.h"
#include "simulation/machine/wait_hub.h"

namespace simulation {

using kestrelon::platform::Code;

// Any thread. A watch follows its directory, not the path, as the platform's do.
class DirectoryWatches {
 public:
  explicit DirectoryWatches(WaitHub& hub) : hub_(hub) {}

  // --- The tests' side. Both waits give up after ten seconds of real time. ---

  std::size_t open_watches() const;
  // Watches begun since the machine was made.
  std::size_t begun_watches() const;
  // Threads that wait for watches now.
  std::size_t waiting_threads() const;
  // Waits until no thread has a signal to take up or is at work on one, but the calling thread:
  // until each watch that a thread waits for is unsignalled, continued or closed. A thread that
  // left its last wait because of the stop event is not waited for. Giving up, it lets a caller go
  // on that holds what such a thread needs.
  void WaitForWatchers();
  // Waits until so many watches are open and waited for; false when that does not come about.
  [[nodiscard]] bool WaitForOpen(std::size_t count);

  // --- The file system's side; its guard is held. ---

  // Something of the kinds in `kinds` (NotifyFilter) happened to an entry of the directory.
  void Signal(const FileNode& directory, std::uint32_t kinds);
  // The directory is being removed, with all below it.
  void Lose(const FileNode& removed);
  // All handles are dead.
  void DropHandles();

  // --- The seam's side. ---

  std::uintptr_t Begin(std::shared_ptr<FileNode> directory, std::uint32_t filter);
  void Close(std::uintptr_t handle);
  Code Continue(std::uintptr_t handle);
  int Wait(const kestrelon::platform::Event& stop, const std::vector<std::uintptr_t>& handles);

 private:
  struct Watch {
    std::shared_ptr<FileNode> directory;
    std::uint32_t filter = 0;
    bool signalled = false;
    bool pending = false;     // something happened since the signal
    bool lost = false;        // the directory was removed
    bool waited_for = false;  // now
    std::thread::id watcher;  // who waited for it last; none after a stop
  };

  // All below need the hub's mutex.

  // What a wait for these would give now, or nothing.
  std::optional<int> Outcome(const kestrelon::platform::Event& stop,
                             const std::vector<std::uintptr_t>& handles) const;
  void SetWatcher(const std::vector<std::uintptr_t>& handles, std::thread::id watcher, bool waits);

  WaitHub& hub_;
  // Guarded by the hub's mutex.
  std::map<std::uintptr_t, Watch> watches_;
  std::uintptr_t last_handle_ = 0;
};

}  // namespace simulation

// The file in which the engine's persistent objects outlive BFE.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "simulation/engine/engine.h"

namespace simulation {

// Any thread may call. A save replaces the file in one step, and only if something changed: what
// is in the file is always a state that was committed. It is safe from the end of the process at
// any moment, not from a power cut.
class PolicyFile {
 public:
  PolicyFile(Engine& engine, std::wstring path);

  // Puts what the file holds into the engine, nothing if there is no file. A file that cannot be
  // read or is none of this engine's is an error, never an empty policy.
  [[nodiscard]] bool Load(std::wstring& error);

  // Saves what is committed now. The system's code.
  [[nodiscard]] Code Save();

  // Has it saved a moment later: for changes that come by the thousand, one call each.
  void SaveSoon();

 private:
  void SaveWhenAsked();

  Engine& engine_;
  const std::wstring path_;
  std::mutex save_mutex_;  // one save at a time, so that an older state never replaces a newer
  Bytes saved_;            // what the file holds; guarded by save_mutex_
  std::mutex wish_mutex_;
  std::condition_variable wish_;
  bool wished_ = false;  // guarded by wish_mutex_
  std::thread saver_;    // runs until the process ends
};

}  // namespace simulation

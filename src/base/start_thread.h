// Threads whose start may fail without ending the process.
#pragma once

#include <system_error>
#include <thread>
#include <utility>

namespace kestrelon {

// Starts `routine` on a thread of its own, held by `thread`, which must hold none. False, with
// nothing started, when the system has no room for another thread.
template <typename Routine>
[[nodiscard]] bool StartThread(std::thread& thread, Routine routine) {
  try {
    thread = std::thread(std::move(routine));
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

}  // namespace kestrelon

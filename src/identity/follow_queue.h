// Programs that were blocked without a rule of their own and may be new versions of listed ones, on
// their way from the callbacks that report them to the worker that may take its time.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace kestrelon {

// Hands a blocked program to the follow worker. Any thread, never waits for the worker. A full
// queue drops the path: a program that is still blocked knocks again.
void QueueFollow(const std::wstring& path);

// For the worker: waits for the oldest path and takes it. False once StopFollowQueue was called,
// whatever is still queued.
[[nodiscard]] bool TakeFollow(std::wstring& path);

// The worker is to take paths; it is to end. Paths may be queued before, between and after.
void OpenFollowQueue();
void StopFollowQueue();

// When the worker handled which path last: a blocked program knocks many times a minute, and each
// knock would cost the verification of a signature. For one thread.
class SeenPaths {
 public:
  // Whether the path was not handled within the last 30 seconds, letter case aside. If so, it
  // counts as handled now.
  [[nodiscard]] bool IsDue(const std::wstring& path);

 private:
  std::unordered_map<std::wstring, std::uint64_t> ticks_;  // ms, by lower-case path
};

}  // namespace kestrelon

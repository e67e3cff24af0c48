#include "identity/follow_queue.h"

#include <deque>
#include <utility>

#include "base/guard.h"
#include "platform/clock.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr std::size_t kMostQueued = 200;
constexpr std::size_t kMostSeen = 1000;
constexpr std::uint64_t kSeenSpacingMs = 30000;

Guard FollowGuard("FollowGuard", GuardRank::kLeaf);
std::deque<std::wstring> queued_paths GUARDED_BY(FollowGuard);
bool worker_is_to_end GUARDED_BY(FollowGuard) = false;
GuardCondition queue_changed;

}  // namespace

void QueueFollow(const std::wstring& path) {
  GuardLock lock(FollowGuard);
  if (queued_paths.size() >= kMostQueued) return;
  queued_paths.push_back(path);
  queue_changed.WakeAll();
}

bool TakeFollow(std::wstring& path) {
  GuardLock lock(FollowGuard);
  while (queued_paths.empty() && !worker_is_to_end) queue_changed.Wait(FollowGuard);
  if (worker_is_to_end) return false;
  path = std::move(queued_paths.front());
  queued_paths.pop_front();
  return true;
}

void OpenFollowQueue() {
  GuardLock lock(FollowGuard);
  worker_is_to_end = false;
}

void StopFollowQueue() {
  GuardLock lock(FollowGuard);
  worker_is_to_end = true;
  queue_changed.WakeAll();
}

bool SeenPaths::IsDue(const std::wstring& path) {
  const std::uint64_t now = platform::TickMilliseconds();
  const std::wstring key = platform::LowerCase(path);
  const auto seen = ticks_.find(key);
  if (seen != ticks_.end() && now - seen->second < kSeenSpacingMs) return false;
  // Forgetting costs one more verification each and nothing else.
  if (ticks_.size() > kMostSeen) ticks_.clear();
  ticks_[key] = now;
  return true;
}

}  // namespace kestrelon

// Mutexes that know their place: clang checks at compile time that guarded data is touched under
// its guard, and debug builds check at run time that guards are taken in their order.
//
// The order, outermost first, is the order of GuardRank. A thread may take a guard only while it
// holds none of the same or a later rank; a leaf is never held while another guard is taken. The
// one exception is a recursive guard that the thread holds already. A violation ends the process
// with the names of both guards.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define KESTRELON_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define KESTRELON_THREAD_ATTRIBUTE(x)
#endif
#define CAPABILITY(name) KESTRELON_THREAD_ATTRIBUTE(capability(name))
#define SCOPED_CAPABILITY KESTRELON_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(guard) KESTRELON_THREAD_ATTRIBUTE(guarded_by(guard))
#define REQUIRES(...) KESTRELON_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) KESTRELON_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) KESTRELON_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) KESTRELON_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS KESTRELON_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace kestrelon {

// kSubsystem is of the guards that one subsystem keeps beside its data: under them only leaves are
// taken.
enum class GuardRank { kConfig = 1, kEngine = 2, kRecord = 3, kSubsystem = 4, kLeaf = 5 };

// Book-keeping of what the calling thread holds. In release builds both do nothing.
void NoteGuardTaken(const void* guard, const char* name, GuardRank rank);
void NoteGuardReleased(const void* guard);

// A mutex with a name and a rank; M is std::mutex or std::recursive_mutex.
template <typename M>
class CAPABILITY("guard") BasicGuard {
 public:
  constexpr BasicGuard(const char* name, GuardRank rank) : name_(name), rank_(rank) {}
  BasicGuard(const BasicGuard&) = delete;
  BasicGuard& operator=(const BasicGuard&) = delete;

  void Lock() ACQUIRE() {
    NoteGuardTaken(this, name_, rank_);
    mutex_.lock();
  }
  void Unlock() RELEASE() {
    mutex_.unlock();
    NoteGuardReleased(this);
  }

 private:
  friend class GuardCondition;

  M mutex_;
  const char* name_;
  GuardRank rank_;
};

using Guard = BasicGuard<std::mutex>;
using RecursiveGuard = BasicGuard<std::recursive_mutex>;

// Holds a guard for a scope.
template <typename G>
class SCOPED_CAPABILITY GuardLock {
 public:
  explicit GuardLock(G& guard) ACQUIRE(guard) : guard_(guard) { guard_.Lock(); }
  ~GuardLock() RELEASE() { guard_.Unlock(); }
  GuardLock(const GuardLock&) = delete;
  GuardLock& operator=(const GuardLock&) = delete;

 private:
  G& guard_;
};

// What threads wait for under a guard. A wait may end without cause: callers look again.
class GuardCondition {
 public:
  void WakeAll() { condition_.notify_all(); }

  // Release the guard while waiting and hold it again on return.
  void Wait(Guard& guard) REQUIRES(guard) {
    std::unique_lock lock(guard.mutex_, std::adopt_lock);
    condition_.wait(lock);
    (void)lock.release();
  }
  void WaitUntil(Guard& guard, std::chrono::steady_clock::time_point deadline) REQUIRES(guard) {
    std::unique_lock lock(guard.mutex_, std::adopt_lock);
    (void)condition_.wait_until(lock, deadline);
    (void)lock.release();
  }

 private:
  std::condition_variable condition_;
};

}  // namespace kestrelon

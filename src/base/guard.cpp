#include "base/guard.h"

#include <cstdio>
#include <cstdlib>

namespace kestrelon {

#if defined(NDEBUG)

void NoteGuardTaken(const void*, const char*, GuardRank) {}
void NoteGuardReleased(const void*) {}

#else

namespace {

struct HeldGuard {
  const void* guard;
  const char* name;
  GuardRank rank;
};

// No thread nests deeper than this: a guard of each rank, the recursive one some times more.
constexpr int kMostHeld = 16;

thread_local HeldGuard held_guards[kMostHeld];
thread_local int held_count = 0;

[[noreturn]] void StopForOrder(const char* taken, const char* held) {
  std::fprintf(stderr, "Guard order violated: %s taken while holding %s\n", taken, held);
  std::abort();
}

}  // namespace

void NoteGuardTaken(const void* guard, const char* name, GuardRank rank) {
  bool again = false;
  for (int i = 0; i < held_count; ++i) again = again || held_guards[i].guard == guard;
  for (int i = 0; i < held_count && !again; ++i) {
    if (held_guards[i].rank >= rank) StopForOrder(name, held_guards[i].name);
  }
  if (held_count == kMostHeld) StopForOrder(name, "too many guards");
  held_guards[held_count++] = HeldGuard{guard, name, rank};
}

void NoteGuardReleased(const void* guard) {
  for (int i = held_count - 1; i >= 0; --i) {
    if (held_guards[i].guard != guard) continue;
    for (int j = i; j + 1 < held_count; ++j) held_guards[j] = held_guards[j + 1];
    --held_count;
    return;
  }
}

#endif

}  // namespace kestrelon

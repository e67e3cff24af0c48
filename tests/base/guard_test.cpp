#include "base/guard.h"

#include <gtest/gtest.h>

namespace kestrelon {
namespace {

RecursiveGuard outer("outer", GuardRank::kConfig);
Guard inner("inner", GuardRank::kRecord);
Guard leaf("leaf", GuardRank::kLeaf);
Guard other_leaf("other leaf", GuardRank::kLeaf);

TEST(Guard, OrderAndRecursionPassEvenUnderAnInnerOne) NO_THREAD_SAFETY_ANALYSIS {
  for (int i = 0; i < 2; ++i) {
    const GuardLock first(outer);
    const GuardLock second(inner);
    outer.Lock();  // the thread can't wait for itself
    const GuardLock third(leaf);
    outer.Unlock();
  }
  const GuardLock only_leaf(leaf);
}

#if !defined(NDEBUG)

template <typename First, typename Second>
void TakeBoth(First& first, Second& second) {
  const GuardLock held(first);
  const GuardLock taken(second);
}

TEST(GuardDeathTest, WrongOrderEndsTheProcessWithBothNames) {
  EXPECT_DEATH(TakeBoth(inner, outer), "Guard order violated: outer taken while holding inner");
  EXPECT_DEATH(TakeBoth(leaf, other_leaf),
               "Guard order violated: other leaf taken while holding leaf");
}

TEST(GuardDeathTest, ReleasedGuardsAreForgotten) {
  TakeBoth(outer, leaf);
  TakeBoth(outer, inner);
  EXPECT_DEATH(TakeBoth(leaf, inner), "inner taken while holding leaf");
}

#endif

}  // namespace
}  // namespace kestrelon

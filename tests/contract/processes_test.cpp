// What the process uses.
#include "platform/processes.h"

#include <gtest/gtest.h>

namespace {

using namespace kestrelon::platform;

constexpr std::uint64_t kMebibyte = 1U << 20U;

TEST(OwnMemoryUse, TellsTheWorkingSet) {
  MemoryUse use;
  ASSERT_EQ(OwnMemoryUse(use), kSuccess);
  EXPECT_GT(use.working_set_bytes, kMebibyte);
}

TEST(OwnMemoryUse, TellsThePrivateBytes) {
  MemoryUse use;
  ASSERT_EQ(OwnMemoryUse(use), kSuccess);
  EXPECT_GT(use.private_bytes, kMebibyte / 4);
}

TEST(OwnHandleCount, TellsTheOpenHandles) {
  std::uint32_t count = 0;
  ASSERT_EQ(OwnHandleCount(count), kSuccess);
  EXPECT_GT(count, 0u);
}

}  // namespace

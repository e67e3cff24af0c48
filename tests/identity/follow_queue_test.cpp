#include "identity/follow_queue.h"

#include <gtest/gtest.h>

#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

using simulation::TheMachine;

std::wstring Numbered(int number) {
  return L"C:\\Apps\\" + std::to_wstring(number) + L"\\app.exe";
}

TEST(FollowQueue, GivesTheOldestFirstAndDropsWhatDoesNotFit) {
  for (int i = 0; i < 201; ++i) QueueFollow(Numbered(i));
  std::wstring path;
  for (int i = 0; i < 200; ++i) {
    ASSERT_TRUE(TakeFollow(path));
    EXPECT_EQ(path, Numbered(i));
  }
  QueueFollow(Numbered(201));
  ASSERT_TRUE(TakeFollow(path));
  EXPECT_EQ(path, Numbered(201)) << "the 201st was dropped, and there is room again";
}

TEST(FollowQueue, AStopEndsTheTakingWhateverIsQueued) {
  QueueFollow(Numbered(1));
  StopFollowQueue();
  std::wstring path = L"untouched";
  EXPECT_FALSE(TakeFollow(path));
  EXPECT_EQ(path, L"untouched");
  OpenFollowQueue();
  EXPECT_TRUE(TakeFollow(path));
  EXPECT_EQ(path, Numbered(1));
}

TEST(SeenPaths, APathIsDueOnceIn30Seconds) {
  SeenPaths seen;
  auto& clock = TheMachine().clock;
  EXPECT_TRUE(seen.IsDue(L"C:\\Apps\\app.exe"));
  EXPECT_TRUE(seen.IsDue(L"C:\\Apps\\other.exe"));
  clock.Advance(29999);
  EXPECT_FALSE(seen.IsDue(L"c:\\apps\\APP.exe"));
  clock.Advance(1);
  EXPECT_TRUE(seen.IsDue(L"c:\\apps\\APP.exe")) << "a knock that was passed over does not count";
  EXPECT_FALSE(seen.IsDue(L"C:\\Apps\\app.exe"));
}

TEST(SeenPaths, AreForgottenWhenTheyAreMoreThan1000) {
  SeenPaths seen;
  for (int i = 0; i < 1001; ++i) EXPECT_TRUE(seen.IsDue(Numbered(i)));
  EXPECT_FALSE(seen.IsDue(Numbered(0))) << "the 1001st still found its place";
  EXPECT_TRUE(seen.IsDue(Numbered(1001)));
  EXPECT_TRUE(seen.IsDue(Numbered(0)));
  EXPECT_FALSE(seen.IsDue(Numbered(1001)));
}

}  // namespace
}  // namespace kestrelon

// Faults, the wall clock and threads of the machine.
#include <gtest/gtest.h>

#include <thread>

#include "platform/clock.h"
#include "platform/console.h"
#include "platform/files.h"
#include "platform/registry.h"
#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

Code Read() {
  std::uint32_t value = 0;
  return ReadRegistryDword(L"SOFTWARE\\X", L"Y", value);
}

Code Make() {
  return MakeDirectory(L"C:\\ProgramData\\made");
}

TEST(Faults, NthCallOfAnyNameFailsOnce) {
  Faults& faults = TheMachine().faults;
  faults.FailNth(2, kDiskFull);
  EXPECT_EQ(Read(), kFileNotFound);
  EXPECT_FALSE(faults.fired());
  EXPECT_EQ(Make(), kDiskFull);
  EXPECT_EQ(faults.fired_name(), "MakeDirectory");
  EXPECT_FALSE(TheMachine().files.Exists(L"C:\\ProgramData\\made"));
  EXPECT_EQ(Make(), kSuccess);
  EXPECT_EQ(faults.calls(), 3u);
}

TEST(Faults, NamedFaultsStrikeTheirOwnCalls) {
  Faults& faults = TheMachine().faults;
  faults.FailOnce("ReadRegistryDword", kAccessDenied);
  EXPECT_EQ(Make(), kSuccess);
  EXPECT_EQ(Read(), kAccessDenied);
  EXPECT_EQ(Read(), kFileNotFound);
  faults.FailNthOf("MakeDirectory", 2, kDiskFull);
  EXPECT_EQ(Make(), kAlreadyExists);
  EXPECT_EQ(Make(), kDiskFull);
  faults.FailAlways("MakeDirectory", kAccessDenied);
  EXPECT_EQ(Make(), kAccessDenied);
  EXPECT_EQ(Make(), kAccessDenied);
  faults.Clear();
  EXPECT_FALSE(faults.fired());
  EXPECT_EQ(Make(), kAlreadyExists);
}

TEST(Clock, WallClockIsSetApartFromTheTick) {
  TheMachine().clock.SetTime(kFirstSystemTime - 10'000'000);
  EXPECT_EQ(TickMilliseconds(), kFirstTick);
  EXPECT_EQ(LocalTime()->hour, 11u);
  SleepMilliseconds(1000);
  EXPECT_EQ(TickMilliseconds(), kFirstTick + 1000);
  EXPECT_EQ(SystemTime(), kFirstSystemTime);
}

TEST(Machine, PartsMayBeUsedByManyThreads) {
  const auto work = [](int number) {
    const std::wstring path = L"C:\\ProgramData\\" + std::to_wstring(number);
    for (int i = 0; i < 50; ++i) {
      File file;
      std::uint32_t written = 0;
      EXPECT_EQ(OpenFile(path, kGenericWrite, kShareAll, kCreateAlways, kNormalFile, file),
                kSuccess);
      EXPECT_EQ(WriteFileBytes(file, "text", 4, written), kSuccess);
      file.Close();
      EXPECT_EQ(RenameFile(path, path + L".moved", kReplaceExisting | kWriteThrough), kSuccess);
      EXPECT_EQ(WriteRegistryDword(L"SOFTWARE\\X", path, 1), kSuccess);
      SleepMilliseconds(1);
      WriteStandardOutput(L".");
    }
  };
  std::thread first(work, 1);
  std::thread second(work, 2);
  first.join();
  second.join();
  EXPECT_EQ(TheMachine().files.open_handles(), 0u);
  EXPECT_EQ(TheMachine().console.output.text().size(), 100u);
  EXPECT_EQ(TheMachine().clock.Tick(), kFirstTick + 100);
}

}  // namespace
}  // namespace simulation

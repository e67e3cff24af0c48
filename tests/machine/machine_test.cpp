// Faults, clocks, waits and handles of the machine.
#include <gtest/gtest.h>

#include <thread>

#include "platform/clock.h"
#include "platform/console.h"
#include "platform/files.h"
#include "platform/registry.h"
#include "platform/services.h"
#include "platform/system_text.h"
#include "platform/wait.h"
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

TEST(Clock, HeldClockMovesByWaitingAlone) {
  EXPECT_EQ(TickMilliseconds(), kFirstTick);
  const CalendarTime start = *LocalTime();
  EXPECT_EQ(start.year, 2026u);
  EXPECT_EQ(start.month, 11u);
  EXPECT_EQ(start.day, 21u);
  EXPECT_EQ(start.hour, 12u);
  SleepMilliseconds(61'000);
  Event event(Event::Reset::kAutomatic);
  EXPECT_EQ(WaitForAny({&event}, 3'600'000), kWaitTimedOut);
  EXPECT_EQ(TickMilliseconds(), kFirstTick + 3'661'000);
  EXPECT_EQ(SystemTime(), kFirstSystemTime + 36'610'000'000);
  const CalendarTime now = *LocalTime();
  EXPECT_EQ(now.hour * 3600 + now.minute * 60 + now.second, 13u * 3600 + 61);
  event.Set();
  EXPECT_EQ(WaitForAny({&event}, 1000), 0);
  EXPECT_EQ(TickMilliseconds(), kFirstTick + 3'661'000);
}

TEST(Clock, WallClockIsSetApartFromTheTick) {
  Clock& clock = TheMachine().clock;
  clock.SetTime(kFirstSystemTime - 10'000'000);
  EXPECT_EQ(TickMilliseconds(), kFirstTick);
  EXPECT_EQ(LocalTime()->hour, 11u);
  clock.Run();
  SleepMilliseconds(20);
  clock.Hold();
  EXPECT_GE(TickMilliseconds(), kFirstTick + 20);
}

TEST(Wait, RunningClockWakesASleeperBySetting) {
  TheMachine().clock.Run();
  Event never(Event::Reset::kManual);
  Event event(Event::Reset::kAutomatic);
  Event answer(Event::Reset::kManual);
  std::thread sleeper([&] {
    EXPECT_EQ(WaitForAny({&never, &event}, kWaitForever), 1);
    answer.Set();
  });
  event.Set();
  EXPECT_EQ(WaitForAny({&answer}, 60'000), 0);
  sleeper.join();
  EXPECT_EQ(WaitForAny({&event}, 1), kWaitTimedOut);  // the sleeper consumed it
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
      EXPECT_EQ(FlushFile(file), kSuccess);
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

TEST(Machine, ServiceHandleOutlivesItsService) {
  ServiceTable& services = TheMachine().services;
  {
    ServiceHandle manager;
    ServiceHandle service;
    ASSERT_EQ(OpenServiceManager(kManagerConnect, manager), kSuccess);
    ASSERT_EQ(OpenServiceByName(manager, L"bfe", kServiceQueryStatus, service), kSuccess);
    services.Remove(L"BFE");
    std::uint32_t state = 0;
    EXPECT_EQ(QueryServiceState(service, state), kSuccess);
    EXPECT_EQ(OpenServiceByName(manager, L"bfe", kServiceQueryStatus, service), kServiceNotFound);
    EXPECT_EQ(services.open_handles(), 2u);
  }
  EXPECT_EQ(services.open_handles(), 0u);
}

TEST(Machine, LetterCaseIsThePlatforms) {
  EXPECT_TRUE(EqualIgnoringCase(L"\u00c4\u0416\u03a9", L"\u00e4\u0436\u03c9"));
  EXPECT_EQ(LowerCase(L"\u00dcBER \u0414"), L"\u00fcber \u0434");
  // The Kelvin sign and the dotless i are letters of their own.
  EXPECT_FALSE(EqualIgnoringCase(L"\u212a", L"k"));
  EXPECT_FALSE(EqualIgnoringCase(L"\u0131", L"I"));
  EXPECT_EQ(LowerCase(L"\u212a\u0130"), L"\u212a\u0130");
}

bool stop_requested = false;

TEST(Machine, StopRequestCallsTheHandler) {
  EXPECT_FALSE(TheMachine().console.RequestStop());
  ASSERT_EQ(SetConsoleStopHandler([] { stop_requested = true; }), kSuccess);
  EXPECT_TRUE(TheMachine().console.RequestStop());
  EXPECT_TRUE(stop_requested);
}

}  // namespace
}  // namespace simulation

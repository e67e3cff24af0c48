// Clock, waits, hashes and the registry.
#include <gtest/gtest.h>

#include "base/text.h"
#include "platform/clock.h"
#include "platform/crypto.h"
#include "platform/registry.h"
#include "platform/wait.h"

namespace {

using namespace kestrelon::platform;

// The platform's tick moves in steps of 16 ms. Under Wine a server moves it, which comes late by
// more than a step when the machine is busy: the second reading may then be behind.
constexpr std::uint32_t kWaitMs = 100;
constexpr std::uint32_t kLeastSeenMs = 50;

TEST(Clock, AdvancesByWhatIsSleptOrWaited) {
  Event never(Event::Reset::kManual);
  for (const bool in_wait : {false, true}) {
    const std::uint64_t tick = TickMilliseconds();
    const std::uint64_t counter = PerformanceCounter();
    const std::int64_t time = SystemTime();
    if (in_wait) {
      EXPECT_EQ(WaitForAny({&never}, kWaitMs), kWaitTimedOut);
    } else {
      SleepMilliseconds(kWaitMs);
    }
    EXPECT_GE(TickMilliseconds(), tick + kLeastSeenMs);
    EXPECT_GT(PerformanceCounter(), counter);
    EXPECT_GE(SystemTime(), time + std::int64_t{kLeastSeenMs} * kTimeStepsPerMs);
  }
}

TEST(LocalTimeOf, GivesTheCalendarTimeOfAMoment) {
  constexpr std::int64_t kMoment = 134'397'380'960'000'000;  // 2026-11-21 12:34:56 UTC
  for (const std::int64_t time : {kMoment, kMoment + 9'999'999}) {
    const std::optional<CalendarTime> local = LocalTimeOf(time);
    ASSERT_TRUE(local.has_value());
    // Zones differ by whole quarters of an hour.
    EXPECT_TRUE(local->year == 2026 && local->month == 11);
    EXPECT_TRUE(local->day >= 20 && local->day <= 22);
    EXPECT_TRUE(local->minute % 15 == 34 % 15 && local->second == 56);
  }
  EXPECT_FALSE(LocalTimeOf(-1).has_value());
}

TEST(WaitForAny, TakesTheFirstSetEventInListOrder) {
  Event a(Event::Reset::kAutomatic);
  Event b(Event::Reset::kAutomatic);
  Event c(Event::Reset::kManual);
  c.Set();
  b.Set();
  b.Set();
  EXPECT_EQ(WaitForAny({&a, &b, &c}, 0), 1);
  EXPECT_EQ(WaitForAny({&a, &b, &c}, 0), 2) << "the wait consumes an automatic event set twice";
  EXPECT_EQ(WaitForAny({&a, &b, &c}, 0), 2) << "a manual event stays set";
  c.Clear();
  b.Set();
  b.Clear();
  EXPECT_EQ(WaitForAny({&a, &b, &c}, 0), kWaitTimedOut);
  a.Set();
  b.Set();
  EXPECT_EQ(WaitForAny({&a, &b}, kWaitForever), 0);
  EXPECT_EQ(WaitForAny({&a, &b}, kWaitForever), 1) << "what is behind the first is left alone";
}

TEST(Sha256, GivesThePublishedAnswersBeginsAnewAndFailsOutOfTurn) {
  const struct {
    std::string piece;
    int times;
    const wchar_t* hash;
  } cases[] = {
      {"", 0, L"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", 1, L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {std::string(1000, 'a'), 1000,
       L"cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
  };
  Sha256 hash;
  Sha256Digest digest{};
  for (const auto& c : cases) {
    EXPECT_NE(hash.Add("x", 1), kSuccess) << "out of turn";
    EXPECT_NE(hash.Finish(digest), kSuccess) << "out of turn";
    ASSERT_EQ(hash.Begin(), kSuccess);
    ASSERT_EQ(hash.Add("dropped", 7), kSuccess);
    ASSERT_EQ(hash.Begin(), kSuccess);
    const auto size = static_cast<std::uint32_t>(c.piece.size());
    for (int i = 0; i < c.times; ++i) ASSERT_EQ(hash.Add(c.piece.data(), size), kSuccess);
    ASSERT_EQ(hash.Finish(digest), kSuccess);
    const Sha256Digest kept = digest;
    EXPECT_NE(hash.Finish(digest), kSuccess);
    EXPECT_EQ(digest, kept) << "changed by a failure";
    EXPECT_EQ(kestrelon::HexText(digest.data(), digest.size()), c.hash);
  }
}

TEST(Registry, KeepsValuesOfAllTypesAndTellsThemApart) {
  const std::wstring key = L"SOFTWARE\\Kestrelon contract\\Types";
  std::uint32_t dword = 0;
  std::uint64_t qword = 0;
  std::wstring text;
  ASSERT_EQ(WriteRegistryDword(key, L"D", 1), kSuccess);
  ASSERT_EQ(WriteRegistryQword(key, L"Q", 0xFEDCBA9800000001), kSuccess);
  ASSERT_EQ(WriteRegistryText(key, L"T", L"1.2\u017e"), kSuccess);
  EXPECT_EQ(ReadRegistryDword(L"SOFTWARE\\No such key", L"D", dword), kFileNotFound);
  EXPECT_EQ(ReadRegistryDword(L"software\\KESTRELON contract\\types", L"d", dword), kSuccess);
  for (const wchar_t name : {L'D', L'Q', L'T', L'D'}) {
    const std::wstring value(1, name);
    EXPECT_EQ(ReadRegistryDword(key, value, dword) == kSuccess, name == L'D');
    EXPECT_EQ(ReadRegistryQword(key, value, qword) == kSuccess, name == L'Q');
    EXPECT_EQ(ReadRegistryText(key, value, 64, text) == kSuccess, name == L'T');
  }
  EXPECT_TRUE(dword == 1 && qword == 0xFEDCBA9800000001 && text == L"1.2\u017e");
  ASSERT_EQ(WriteRegistryText(key, L"Q", L""), kSuccess);
  EXPECT_EQ(ReadRegistryText(key, L"Q", 2, text), kSuccess) << "replaced by another type";
  EXPECT_EQ(text, L"");
}

TEST(Registry, ReadsNoTextOverTheLimit) {
  const std::wstring key = L"SOFTWARE\\Kestrelon contract\\Types";
  std::wstring text = L"unchanged";
  ASSERT_EQ(WriteRegistryText(key, L"Long", L"four"), kSuccess);  // 10 bytes with the null
  for (const std::uint32_t most : {0u, 8u, 9u}) {
    EXPECT_EQ(ReadRegistryText(key, L"Long", most, text), kMoreData) << most;
  }
  EXPECT_EQ(text, L"unchanged");
  EXPECT_EQ(ReadRegistryText(key, L"Long", 10, text), kSuccess);
  EXPECT_EQ(text, L"four");
}

TEST(Registry, ForgetsWhatIsDeleted) {
  const std::wstring key = L"SOFTWARE\\Kestrelon contract\\Types";
  std::uint64_t value = 7;
  ASSERT_EQ(WriteRegistryQword(key, L"Deleted", 1), kSuccess);
  EXPECT_EQ(DeleteRegistryValue(key, L"DELETED"), kSuccess);
  EXPECT_EQ(ReadRegistryQword(key, L"Deleted", value), kFileNotFound);
  EXPECT_EQ(DeleteRegistryValue(key, L"Deleted"), kFileNotFound);
  EXPECT_EQ(DeleteRegistryValue(L"SOFTWARE\\No such key", L"Deleted"), kFileNotFound);
  EXPECT_EQ(value, 7u);
}

}  // namespace

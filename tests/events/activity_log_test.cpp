#include "events/activity_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

#include "control/event_stream.h"
#include "identity/follow_queue.h"
#include "platform/clock.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

constexpr const wchar_t* kLog = L"C:\\ProgramData\\Kestrelon\\activity.log";
constexpr const wchar_t* kOldLog = L"C:\\ProgramData\\Kestrelon\\activity.log.old";
constexpr std::int64_t kSecond = 1000 * platform::kTimeStepsPerMs;
constexpr std::int64_t kNoon = simulation::kFirstSystemTime;

BlockedEvent Connection(std::uint32_t remote_port = 443) {
  BlockedEvent event;
  event.time = kNoon;
  event.app = L"C:\\Apps\\tool.exe";
  event.protocol = 6;
  event.remote_addr = L"203.0.113.5";
  event.local_port = 50000;
  event.remote_port = remote_port;
  event.reason = L"default";
  return event;
}

// One connection after the other.
void Scan(std::uint32_t first_port, std::uint32_t last_port) {
  for (std::uint32_t port = first_port; port <= last_port; ++port) {
    RecordBlockedEvent(Connection(port));
  }
}

class ActivityLog : public testing::Test {
 protected:
  ActivityLog() { machine.files.MakeDirectories(L"C:\\ProgramData\\Kestrelon"); }

  std::string Log() { return machine.files.Read(kLog).value_or(""); }
  std::size_t Lines() {
    const std::string log = Log();
    return static_cast<std::size_t>(std::count(log.begin(), log.end(), '\n'));
  }

  simulation::Machine& machine = simulation::TheMachine();
};

TEST_F(ActivityLog, MergesWhatDiffersInNothingThatTells) {
  constexpr std::uint32_t kOut = 0, kIn = 1;
  const struct {
    const char* what;
    bool merged;
    std::uint32_t direction;
    void (*change)(BlockedEvent&);
  } rows[] = {
      {"local address", true, kOut, [](auto& e) { e.local_addr = L"192.0.2.8"; }},
      {"local port", true, kOut, [](auto& e) { e.local_port = 1; }},
      {"remote port", false, kOut, [](auto& e) { e.remote_port = 1; }},
      {"local port of an inbound one", false, kIn, [](auto& e) { e.local_port = 1; }},
      {"remote port of an inbound one", true, kIn, [](auto& e) { e.remote_port = 1; }},
      {"case of the program", true, kOut, [](auto& e) { e.app = L"c:\\apps\\TOOL.exe"; }},
      {"program", false, kOut, [](auto& e) { e.app += L"2"; }},
      {"direction", false, kOut, [](auto& e) { e.direction = kIn; }},
      {"protocol", false, kOut, [](auto& e) { e.protocol = 17; }},
      {"reason", false, kOut, [](auto& e) { e.reason = L"app"; }},
      {"remote address", false, kOut, [](auto& e) { e.remote_addr = L"203.0.113.6"; }},
      {"case of the package", false, kOut, [](auto& e) { e.package_sid = L"s-1-15-2-7"; }},
      {"case of the rule", false, kOut, [](auto& e) { e.rule = L"RULE"; }},
      {"service unknown", true, kOut, [](auto& e) { e.service.clear(); }},
      {"service", false, kOut, [](auto& e) { e.service = L"Dhcp"; }},
      {"ten minutes", true, kOut, [](auto& e) { e.time += 600 * kSecond; }},
      {"more than ten minutes", false, kOut, [](auto& e) { e.time += 600 * kSecond + 1; }},
      {"an hour back", true, kOut, [](auto& e) { e.time -= 3600 * kSecond; }},
  };
  for (const auto& row : rows) {
    BlockedEvent first = Connection();
    first.direction = row.direction;
    first.package_sid = L"S-1-15-2-7";
    first.rule = L"Rule";
    first.service = L"Dnscache";
    BlockedEvent second = first;
    row.change(second);
    ClearRecentEvents();
    machine.files.Remove(kLog);
    RecordBlockedEvent(first);
    RecordBlockedEvent(second);
    const std::size_t expected = row.merged ? 1 : 2;
    EXPECT_EQ(RecentBlockedEvents().size(), expected) << row.what;
    EXPECT_EQ(Lines(), expected) << row.what;
  }
}

TEST_F(ActivityLog, AMergedRecordHasTheLatestTimeAndTheKnownService) {
  BlockedEvent event = Connection();
  RecordBlockedEvent(event);
  event.service = L"Dnscache";
  event.time = kNoon + kSecond;
  RecordBlockedEvent(event);
  event.service = L"DNSCACHE";
  event.time = kNoon - kSecond;
  RecordBlockedEvent(event);
  const std::vector<BlockedEvent> events = RecentBlockedEvents();
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].time, kNoon + kSecond);
  EXPECT_EQ(events[0].service, L"Dnscache");
}

TEST_F(ActivityLog, LooksForATwinAmong64RecordsUpToTheFirstOldOne) {
  Scan(1, 64);
  Scan(1, 1);
  EXPECT_EQ(RecentBlockedEvents().size(), 64U);
  Scan(65, 65);
  Scan(2, 2);
  EXPECT_EQ(RecentBlockedEvents().size(), 66U) << "64 others have come since";
  BlockedEvent late = Connection(66);
  late.time -= 601 * kSecond;
  RecordBlockedEvent(late);
  Scan(2, 2);
  EXPECT_EQ(RecentBlockedEvents().size(), 68U);
}

TEST_F(ActivityLog, KeepsTheLast2000) {
  Scan(0, 2000);
  const std::vector<BlockedEvent> events = RecentBlockedEvents();
  ASSERT_EQ(events.size(), 2000U);
  EXPECT_EQ(events.front().remote_port, 1U);
}

TEST_F(ActivityLog, ALineTellsServiceAndPackageAndNoTimeThatThereIsNot) {
  BlockedEvent event = Connection();
  event.time = -1;
  event.app = L"C:\\Gr\u00fcn.exe";
  event.service = L"Dnscache";
  event.package_sid = L"S-1-15-2-7";
  event.reason = L"rule";
  event.rule = L"No 100%\ntool";
  RecordBlockedEvent(event);
  EXPECT_EQ(Log(),
            "\tout\t6\tC:\\Gr\xC3\xBCn.exe (Dnscache) [S-1-15-2-7]\t203.0.113.5:443\t"
            "rule: No 100% tool\r\n");
}

TEST_F(ActivityLog, Writes300LinesAMinuteAndSumsUpTheRest) {
  Scan(1, 301);
  EXPECT_EQ(Lines(), 300U);
  machine.clock.Advance(59'999);
  Scan(302, 302);
  EXPECT_EQ(Lines(), 300U);
  ActivityNote(L"installed\n\tit");
  EXPECT_TRUE(Log().ends_with("\n2026-11-21 12:00:59\tKestrelon\tinstalled  it\r\n"));
  machine.clock.Advance(1);
  Scan(302, 302);
  EXPECT_EQ(Lines(), 301U) << "a repeat begins no span";
  BlockedEvent next = Connection(303);
  next.time = kNoon + 60 * kSecond;
  RecordBlockedEvent(next);
  EXPECT_TRUE(
      Log().ends_with("\r\n2026-11-21 12:01:00\t(2 more events in the last minute not "
                      "written)\r\n2026-11-21 12:01:00\tout\t6\tC:\\Apps\\tool.exe\t"
                      "203.0.113.5:303\tdefault\r\n"));
}

TEST_F(ActivityLog, RotatesAboveFourMebibytes) {
  machine.files.Write(kLog, std::string(0x400000, 'a'));
  ActivityNote(L"one more");
  EXPECT_FALSE(machine.files.Read(kOldLog).has_value());
  RecordBlockedEvent(Connection());
  EXPECT_TRUE(machine.files.Read(kOldLog).value_or("").ends_with("\tone more\r\n"));
  EXPECT_EQ(Lines(), 1U);
}

TEST_F(ActivityLog, AFileThatCannotBeOpenedLosesTheLineAlone) {
  const std::atomic<bool> never = false;
  Subscription subscription;
  machine.files.Write(kLog, "kept");
  machine.files.HoldOpen(kLog);
  for (int time = 0; time < 2; ++time) {
    RecordBlockedEvent(Connection());
    EXPECT_NE(subscription.Next(never)->find("\"count\":1}"), std::string::npos) << "as it came";
  }
  machine.files.LetGo(kLog);
  EXPECT_EQ(Log(), "kept");
  EXPECT_EQ(RecentBlockedEvents().size(), 1U);
}

TEST_F(ActivityLog, OffersWhatNoRuleNamedForFollowing) {
  for (const wchar_t* reason : {L"app", L"rule", L"default"}) {
    for (const wchar_t* app : {L"", L"\\Device\\Mup\\tool.exe", L"C:\\Apps\\tool.exe"}) {
      BlockedEvent event = Connection();
      event.reason = reason;
      event.app = app;
      RecordBlockedEvent(event);
    }
  }
  QueueFollow(L"last");
  for (const wchar_t* expected : {L"C:\\Apps\\tool.exe", L"last"}) {
    std::wstring path;
    ASSERT_TRUE(TakeFollow(path));
    EXPECT_EQ(path, expected);
  }
}

}  // namespace
}  // namespace kestrelon

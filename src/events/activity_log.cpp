#include "events/activity_log.h"

#include <algorithm>
#include <iterator>
#include <list>
#include <string_view>

#include "base/format.h"
#include "base/text.h"
#include "control/subscribers.h"
#include "core/data_dir.h"
#include "core/line_file.h"
#include "identity/follow_queue.h"
#include "platform/clock.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr std::size_t kMostRecent = 2000;
// How far the search for a twin goes, so that each packet of a storm costs a bounded time.
constexpr int kMostCompared = 64;
constexpr std::int64_t kMergeWithin = 600'000 * platform::kTimeStepsPerMs;

constexpr std::uint64_t kSpanMs = 60000;
constexpr std::uint32_t kMostLinesInSpan = 300;
constexpr std::uint64_t kRotateAboveBytes = 0x400000;

// A list, because a repeat moves its record from the middle to the end.
using EventList = std::list<BlockedEvent>;
EventList RecentEvents GUARDED_BY(LogGuard);  // newest at the back

// The first occurrences of a span of time, of which only so many are written.
struct LineSpan {
  std::uint64_t begin = 0;  // tick
  std::uint32_t written = 0;
  std::uint32_t suppressed = 0;
};
LineSpan Span GUARDED_BY(LogGuard);

// Asked of the platform once, which costs more than all the rest of a repeat.
const std::wstring& ActivityPath() {
  static const std::wstring path = DataDir() + L"\\activity.log";
  return path;
}

bool EqualTexts(std::wstring_view a, std::wstring_view b) {
  return a == b || platform::EqualIgnoringCase(a, b);
}

// The port that tells connections apart: the other end of an inbound one takes any.
std::uint32_t PortOf(const BlockedEvent& event) {
  return event.direction == 1 ? event.local_port : event.remote_port;
}

// Numbers first: in a port scan they tell nearly all records apart.
bool IsTwin(const BlockedEvent& record, const BlockedEvent& event) {
  return record.direction == event.direction && record.protocol == event.protocol &&
         PortOf(record) == PortOf(event) && record.remote_addr == event.remote_addr &&
         record.reason == event.reason && record.rule == event.rule &&
         record.package_sid == event.package_sid && EqualTexts(record.app, event.app) &&
         (record.service.empty() || event.service.empty() ||
          EqualTexts(record.service, event.service));
}

EventList::iterator FindTwin(const BlockedEvent& event) REQUIRES(LogGuard) {
  int compared = 0;
  for (auto it = RecentEvents.rbegin(); it != RecentEvents.rend(); ++it) {
    if (++compared > kMostCompared || it->time < event.time - kMergeWithin) break;
    if (IsTwin(*it, event)) return std::prev(it.base());
  }
  return RecentEvents.end();
}

// Gives the record that now stands for the event, which is the last.
const BlockedEvent& Remember(const BlockedEvent& event) REQUIRES(LogGuard) {
  const auto twin = FindTwin(event);
  if (twin == RecentEvents.end()) {
    RecentEvents.push_back(event);
    if (RecentEvents.size() > kMostRecent) RecentEvents.pop_front();
  } else {
    twin->time = std::max(twin->time, event.time);
    twin->count += event.count;
    if (twin->service.empty()) twin->service = event.service;
    RecentEvents.splice(RecentEvents.end(), RecentEvents, twin);
  }
  return RecentEvents.back();
}

std::wstring ProgramText(const BlockedEvent& event) {
  std::wstring text = event.app.empty() ? L"System" : event.app;
  if (!event.service.empty()) text += L" (" + event.service + L")";
  if (!event.package_sid.empty()) text += L" [" + event.package_sid + L"]";
  return text;
}

std::wstring EventLine(const std::wstring& time, const BlockedEvent& event) {
  const bool is_v6 = event.remote_addr.find(L':') != std::wstring::npos;
  const std::wstring address = is_v6 ? L"[" + event.remote_addr + L"]" : event.remote_addr;
  const std::wstring rule = event.rule.empty() ? L"" : L": " + OneLine(event.rule);
  return Format(L"%s\t%s\t%u\t%s\t%s:%u\t%s%s\r\n", time, event.direction == 1 ? L"in" : L"out",
                event.protocol, OneLine(ProgramText(event)), address, PortOf(event), event.reason,
                rule);
}

void ActivityAppend(std::wstring_view text) REQUIRES(LogGuard) {
  AppendToLineFile(ActivityPath(), kRotateAboveBytes, Utf8FromWide(text));
}

// Writes the event's line unless the span has had its share, and at the first event of a later span
// how many were left out.
void ActivityLine(const BlockedEvent& event) REQUIRES(LogGuard) {
  const std::uint64_t now = platform::TickMilliseconds();
  std::uint32_t left_out = 0;
  if (now - Span.begin >= kSpanMs) {
    left_out = Span.suppressed;
    Span = {.begin = now};
  }
  if (++Span.written > kMostLinesInSpan) {
    ++Span.suppressed;
    return;
  }
  const std::wstring time = TimeStamp(platform::LocalTimeOf(event.time));
  std::wstring text;
  if (left_out != 0) {
    text = Format(L"%s\t(%u more events in the last minute not written)\r\n", time, left_out);
  }
  ActivityAppend(text + EventLine(time, event));
}

void Publish(const BlockedEvent& event) {
  if (!HasSubscribers()) return;
  Json message;
  message["type"] = "blocked";
  message["event"] = BlockedEventToJson(event);
  PublishEvent(message.Dump(false));
}

// No rule named the program: it may be the new version of one that is allowed. A path that no drive
// stands for can't be one of those.
bool MayBeNewVersion(const BlockedEvent& event) {
  return event.reason == L"default" && !event.app.empty() && event.app.front() != L'\\';
}

}  // namespace

void RecordBlockedEvent(const BlockedEvent& event) {
  (void)ActivityPath();  // looked up once, and not under the guard
  {
    GuardLock lock(LogGuard);
    const BlockedEvent& record = Remember(event);
    if (record.count == 1) ActivityLine(record);
  }
  Publish(event);
  if (MayBeNewVersion(event)) QueueFollow(event.app);
}

void ActivityNote(const std::wstring& text) {
  const std::wstring time = TimeStamp(platform::LocalTime());
  (void)ActivityPath();
  GuardLock lock(LogGuard);
  ActivityAppend(time + L"\tKestrelon\t" + OneLine(text) + L"\r\n");
}

std::vector<BlockedEvent> RecentBlockedEvents() {
  GuardLock lock(LogGuard);
  return {RecentEvents.begin(), RecentEvents.end()};
}

void ClearRecentEvents() {
  EventList cleared;
  GuardLock lock(LogGuard);
  cleared.swap(RecentEvents);
}

}  // namespace kestrelon

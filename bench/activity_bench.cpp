// What a blocked connection costs on its way into the list and the file: repeats, of which a storm
// consists, and first occurrences, of which a port scan does.
//
// The bounds do no more than the least: keeping a copy of the record, as a first occurrence must;
// making its JSON text, as a subscriber needs it; appending a line to the same file on the
// simulated machine's disk.
#include <list>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "base/text.h"
#include "bench/measure.h"
#include "control/event_stream.h"
#include "core/core_state.h"
#include "core/line_file.h"
#include "events/activity_log.h"
#include "events/net_events.h"
#include "filtering/filter_engine.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

constexpr std::uint32_t kEvents = 200'000;
constexpr std::uint32_t kWrittenEvents = 3'000;
constexpr std::uint32_t kLinesInSpan = 300;
constexpr std::uint64_t kSpanMs = 60'000;
constexpr std::uint32_t kSearched = 64;  // records among which a twin is looked for
constexpr std::size_t kKept = 2000;
constexpr std::uint32_t kScannedPorts = 4096;
constexpr std::uint32_t kStormDrops = 1'000'000;
constexpr std::uint32_t kStormThreads = 4;
constexpr std::uint64_t kFilter = 7;
constexpr double kMostOfRepeat = 5000;  // nanoseconds, promised: 200,000 events a second
constexpr const char* kCopying = "keeping a copy of the record";

// Of a port scan. Each comes again only when the search for its twin no longer reaches it.
std::vector<BlockedEvent> ScanEvents() {
  BlockedEvent event;
  event.time = simulation::kFirstSystemTime;
  event.app = L"C:\\Program Files\\Vendor\\Product\\application.exe";
  event.protocol = 6;
  event.local_addr = L"192.0.2.7";
  event.remote_addr = L"203.0.113.5";
  event.local_port = 49152;
  event.reason = L"default";
  std::vector<BlockedEvent> events(kScannedPorts, event);
  for (std::uint32_t n = 0; n < kScannedPorts; ++n) events[n].remote_port = n;
  return events;
}

nlohmann::ordered_json PeerJson(const BlockedEvent& event) {
  nlohmann::ordered_json object;
  object["time"] = event.time;
  object["app"] = Utf8FromWide(event.app);
  object["dir"] = "out";
  object["protocol"] = event.protocol;
  object["local_addr"] = Utf8FromWide(event.local_addr);
  object["local_port"] = event.local_port;
  object["remote_addr"] = Utf8FromWide(event.remote_addr);
  object["remote_port"] = event.remote_port;
  object["reason"] = Utf8FromWide(event.reason);
  object["count"] = event.count;
  return object;
}

double RecordAmong(const std::vector<BlockedEvent>& events, std::uint32_t connections) {
  return NanosecondsOfEach(kEvents,
                           [&](std::uint32_t n) { RecordBlockedEvent(events[n % connections]); });
}

double CopyOfRecord(const std::vector<BlockedEvent>& events) {
  std::list<BlockedEvent> copies;
  return NanosecondsOfEach(kEvents, [&](std::uint32_t n) {
    copies.push_back(events[n % kScannedPorts]);
    if (copies.size() > kKept) copies.pop_front();
  });
}

void MeasureUnwritten(const std::vector<BlockedEvent>& events, double copy) {
  Print({"a repeat of the newest connection", RecordAmong(events, 1), kCopying, copy, 0,
         kMostOfRepeat});
  Print({"a repeat of the farthest that is searched", RecordAmong(events, kSearched), kCopying,
         copy, 0, kMostOfRepeat});
  Require(RecentBlockedEvents().back().count != 1);  // else it was no repeat
  const double first = RecordAmong(events, kScannedPorts);
  Require(RecentBlockedEvents().back().count == 1);
  Print({"a first occurrence beyond the file's share", first, kCopying, copy});
}

void MeasurePublished(const std::vector<BlockedEvent>& events) {
  std::size_t bytes = 0;
  const double json = NanosecondsOfEach(kEvents, [&](std::uint32_t n) {
    bytes += BlockedEventToJson(events[n % kScannedPorts]).Dump(false).size();
  });
  std::size_t peer_bytes = 0;
  const double peer = NanosecondsOfEach(kEvents, [&](std::uint32_t n) {
    peer_bytes += PeerJson(events[n % kScannedPorts]).dump().size();
  });
  Require(bytes == peer_bytes);
  Print({"making the JSON text of a record", json, "nlohmann-json's of the same", peer});
  const Subscription stalled;
  Print({"a repeat, with a subscriber that takes none", RecordAmong(events, 1),
         "making its JSON text", json, 0, kMostOfRepeat});
}

void MeasureWritten(const std::vector<BlockedEvent>& events) {
  simulation::Machine& machine = simulation::TheMachine();
  constexpr const wchar_t* kFile = L"C:\\ProgramData\\Kestrelon\\activity.log";
  constexpr const wchar_t* kOtherFile = L"C:\\ProgramData\\Kestrelon\\bound.log";
  machine.files.Remove(kFile);
  const double written = NanosecondsOfEach(kWrittenEvents, [&](std::uint32_t n) {
    if (n % kLinesInSpan == 0) machine.clock.Advance(kSpanMs);
    RecordBlockedEvent(events[n]);
  });
  const std::string log = machine.files.Read(kFile).value_or("");
  const std::string line(log.find('\n') + 1, 'x');
  Require(log.size() > kWrittenEvents * line.size());  // else the file missed some
  const double append = NanosecondsOfEach(kWrittenEvents, [&](std::uint32_t) {
    GuardLock lock(LogGuard);
    AppendToLineFile(kOtherFile, 0x400000, line);
  });
  Print({"a first occurrence that is written", written, "appending a line as long", append});
}

// One thread's share of a scan of all ports from many addresses, as the engine reports it.
void ReportDrops(std::uint32_t thread) {
  const std::vector<std::uint8_t> app =
      Utf16BytesWithNull(L"\\device\\harddiskvolume3\\windows\\system32\\lsass.exe");
  platform::NetEvent event;
  event.type = platform::kEventClassifyDrop;
  event.flags = platform::kEventHasProtocol | platform::kEventHasLocalAddress |
                platform::kEventHasRemoteAddress | platform::kEventHasLocalPort |
                platform::kEventHasRemotePort | platform::kEventHasAppId |
                platform::kEventHasIpVersion;
  event.time = simulation::kFirstSystemTime;
  event.protocol = 6;
  event.local_v4 = 0xC0000207;
  event.app_id = app;
  event.classification = platform::Classification{.filter_id = kFilter};
  for (std::uint32_t n = thread; n < kStormDrops; n += kStormThreads) {
    event.local_port = static_cast<std::uint16_t>(n % 65'535 + 1);
    event.remote_v4 = 0xCB007100 + n % 251;
    OnNetEvent(nullptr, &event);
  }
}

// The whole way of a drop, from the engine's threads.
void MeasureStorm(double copy) {
  {
    GuardLock lock(TheEngine.RecordGuard);
    TheEngine.FilterTags[kFilter].direction = 1;
  }
  const double alone = ThreadNanoseconds();
  ReportDrops(0);
  const double taken_alone = ThreadNanoseconds() - alone;
  Print({"a drop, from the engine's report on", taken_alone * kStormThreads / kStormDrops, kCopying,
         copy});
  const double begin = ProcessNanoseconds();
  std::vector<std::thread> threads;
  for (std::uint32_t n = 0; n < kStormThreads; ++n) threads.emplace_back(&ReportDrops, n);
  for (std::thread& thread : threads) thread.join();
  const double taken = ProcessNanoseconds() - begin;
  Require(Core.NetDrops == kStormDrops + kStormDrops / kStormThreads);
  Require(RecentBlockedEvents().size() == kKept);
  Print({"a drop of a million, reported by four threads", taken / kStormDrops, kCopying, copy});
}

}  // namespace
}  // namespace kestrelon

int main() {
  simulation::TheMachine().files.MakeDirectories(L"C:\\ProgramData\\Kestrelon");
  const std::vector<kestrelon::BlockedEvent> events = kestrelon::ScanEvents();
  kestrelon::PrintSection(
      "Blocked connections",
      "Into the list of recent ones and the file, each. 300 lines are written in a minute, and a "
      "repeat is looked for among the last 64.");
  const double copy = kestrelon::CopyOfRecord(events);
  kestrelon::MeasureUnwritten(events, copy);
  kestrelon::MeasurePublished(events);
  kestrelon::MeasureWritten(events);
  kestrelon::MeasureStorm(copy);
}

// One piece of work of each hot path, for callgrind to count its instructions: unlike times, these
// don't depend on what else a machine does (instructions.py runs this and makes the table).
//
// Prints "name|what" of each in the order in which they run.
#include <cstdio>
#include <string>
#include <vector>

#include "base/guid.h"
#include "base/text.h"
#include "bench/large_config.h"
#include "bench/measure.h"
#include "blocklists/extract_networks.h"
#include "config/config_file.h"
#include "config/presets.h"
#include "control/dispatch.h"
#include "control/event_stream.h"
#include "control/subscribers.h"
#include "core/core_state.h"
#include "events/activity_log.h"
#include "events/net_events.h"
#include "filtering/apply_config.h"
#include "filtering/build_filters.h"
#include "filtering/filter_audit.h"
#include "filtering/filter_engine.h"
#include "identity/file_identity.h"
#include "identity/file_watch.h"
#include "simulation/machine/machine.h"

namespace kestrelon {

// How many pieces of work were counted.
int pieces = 0;

// Callgrind counts what runs in here, and nothing else, by this name. Here and where it is called
// something is left to do behind the call, or the compiler would make a jump of it, which callgrind
// takes for no call.
[[gnu::noinline]] void Counted(const Work& work) {
  work();
  ++pieces;
}

namespace {

// What all of it is done with: as large as an ordinary user's configuration, and somewhat more.
constexpr ConfigSize kSize{.rules = 200, .apps = 100, .networks = 1000};
constexpr std::uint64_t kFilter = 7;
constexpr int kTimes = 100;  // of what is done for each connection, and in the thousands

// Once beforehand: what is made at the first use of anything is no part of a path.
void Count(const char* name, const char* what, const Work& work) {
  work();
  Counted(work);
  std::printf("%s|%s\n", name, what);
}

void CountConfiguration() {
  const Config config = ConfigOfApps(kSize);
  const std::string text = ConfigText(config);
  Json document;
  Count("json_parse", "parsing a file of 200 rules and 100 applications",
        [&] { Require(Json::Parse(text, document)); });
  Count("json_dump", "writing its document with indents",
        [&] { Require(document.Dump(true).size() + 1 == text.size()); });
  Count("config_read", "checking its document", [&] {
    Config read;
    std::wstring error;
    Require(ConfigFromJson(document, read, error));
  });
}

void CountNetworks() {
  std::string feed;
  std::string rejected;
  for (int i = 0; i < 1000; ++i) {
    feed += R"({"cidr":"45.)" + std::to_string(i / 250) + '.' + std::to_string(i % 250) +
            R"(.0/24","sblid":"SBL200000","rir":"apnic"})" + '\n';
    rejected += ":: ";
  }
  Count("networks", "a feed of 1,000 networks",
        [&] { Require(ExtractNetworks(feed).size() == 1000); });
  Count("networks_rejected", "1,000 texts that are none",
        [&] { Require(ExtractNetworks(rejected).empty()); });
}

platform::NetEvent Drop(const std::vector<std::uint8_t>& app) {
  platform::NetEvent event;
  event.type = platform::kEventClassifyDrop;
  event.flags = platform::kEventHasProtocol | platform::kEventHasLocalAddress |
                platform::kEventHasRemoteAddress | platform::kEventHasLocalPort |
                platform::kEventHasRemotePort | platform::kEventHasAppId |
                platform::kEventHasIpVersion;
  event.time = simulation::kFirstSystemTime;
  event.protocol = 6;
  event.local_v4 = 0xC0000207;
  event.remote_v4 = 0xCB007105;
  event.app_id = app;
  event.classification = platform::Classification{.filter_id = kFilter};
  return event;
}

void CountConnections() {
  {
    GuardLock lock(TheEngine.RecordGuard);
    TheEngine.FilterTags[kFilter].direction = 1;
  }
  const std::vector<std::uint8_t> app =
      Utf16BytesWithNull(L"\\device\\harddiskvolume3\\windows\\system32\\lsass.exe");
  platform::NetEvent event = Drop(app);
  Count("drop_repeated", "100 reports of one blocked connection", [&] {
    for (int i = 0; i < kTimes; ++i) OnNetEvent(nullptr, &event);
  });
  std::uint16_t port = 1;
  const auto report_ports = [&] {
    for (int i = 0; i < 4 * kTimes; ++i) {
      event.local_port = port++;
      OnNetEvent(nullptr, &event);
    }
  };
  report_ports();  // uses up what the file takes in a minute
  Count("drop_first", "400 reports of different ones", report_ports);
  const BlockedEvent record = RecentBlockedEvents().back();
  Count("drop_json", "the JSON texts of 100 records", [&] {
    for (int i = 0; i < kTimes; ++i) Require(!BlockedEventToJson(record).Dump(false).empty());
  });
}

void CountPublishing() {
  const std::vector<Subscription> subscribers(100);
  const std::string text(270, 'x');
  Count("publish", "100 events to 100 subscribers", [&] {
    for (int i = 0; i < kTimes; ++i) PublishEvent(text);
  });
}

// The whole way into the engine; what its model takes is in it.
void CountFiltering() {
  std::wstring error;
  Require(OpenEngine(TheEngine, error));
  Config config = ConfigOfNetworks(kSize);
  config.presets_version = kPresetsGeneration;
  for (int i = 0; i < kSize.apps; ++i) {
    AppEntry app;
    app.path = AppPath(i);
    simulation::TheMachine().files.Write(app.path, "program");
    config.apps.push_back(app);
  }
  Count("build_filters", "filters of 200 rules and 1,000 networks", [&] {
    std::vector<std::wstring> warnings;
    const FilterSink sink = [](platform::Filter&, FilterTag&) { return true; };
    Require(BuildFilters(config, {}, warnings, sink));
  });
  Count("apply", "the same and 100 applications put in force, with the engine model", [&] {
    bool changed = false;
    GuardLock lock(ConfigGuard);
    Require(ApplyConfig(config, error, changed));
  });
  Count("audit", "the audit of these filters, with the engine model", [] {
    std::wstring reason;
    Require(FilterAudit(TheEngine, reason) == AuditResult::kClean);
  });
  Count("drift", "looking whether files, services or networks changed", [&] {
    GuardLock lock(ConfigGuard);
    Require(!IdentitiesDrifted(config));
  });
  SyncFileWatch({}, &Core.WakeEvent);  // ends its threads
}

void CountIdentity() {
  const std::wstring path = AppPath(0);
  Count("identity_known", "100 looks at a file that is known", [&] {
    for (int i = 0; i < kTimes; ++i) Require(IdentityFor(path).exists);
  });
  const Guid guid = MakeGuid("6a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9");
  Count("guid_text", "100 texts of identifiers", [&] {
    for (int i = 0; i < kTimes; ++i) Require(GuidText(guid).size() == 38);
  });
}

void CountRequests() {
  const auto ask = [](const std::string& frame) {
    Json request;
    Require(Json::Parse(frame, request));
    Require(DispatchCommand(request).Dump(false).size() > 2);
  };
  {
    GuardLock lock(ConfigGuard);
    Core.CurrentConfig = ConfigOfApps(kSize);
  }
  Count("request_status", "100 answers to \"status\"", [&] {
    for (int i = 0; i < kTimes; ++i) ask(R"({"cmd":"status"})");
  });
  Count("request_config", "an answer to \"get_config\" with 200 rules",
        [&] { ask(R"({"cmd":"get_config"})"); });
}

}  // namespace
}  // namespace kestrelon

int main() {
  simulation::TheMachine();
  kestrelon::CountConfiguration();
  kestrelon::CountNetworks();
  kestrelon::CountConnections();
  kestrelon::CountPublishing();
  kestrelon::CountFiltering();
  kestrelon::CountIdentity();
  kestrelon::CountRequests();
}

#include "events/net_events.h"

#include "base/format.h"
#include "events/activity_log.h"
#include "tests/events/event_world.h"

namespace kestrelon {
namespace {

constexpr std::uint64_t kOwnFilter = 7;

// A drop with all fields, and the bytes that it points at.
struct MadeDrop {
  platform::Bytes app_id = DeviceAppId(L"\\device\\harddiskvolume3\\app\\app.exe");
  platform::Sid package_sid = SidOf(L"S-1-15-2-1");
  platform::NetEvent event;

  MadeDrop() {
    event.type = platform::kEventClassifyDrop;
    event.flags = 0x53F;
    event.protocol = 6;
    event.local_v4 = 0xC0000207;
    event.remote_v4 = 0xCB007105;
    event.remote_v6 = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    event.local_port = 50000;
    event.remote_port = 443;
    event.classification = {kOwnFilter, 0, false};
  }
  void Send(platform::NetEventCallback callback) {
    event.app_id = app_id;
    event.package_sid = package_sid;
    callback(nullptr, &event);
  }
};

class NetEvents : public EventWorld {
 protected:
  void Tag(FilterTag tag) {
    GuardLock lock(TheEngine.RecordGuard);
    TheEngine.FilterTags[kOwnFilter] = std::move(tag);
  }
  // What is recorded of the drop.
  static BlockedEvent Told(MadeDrop& drop) {
    ClearRecentEvents();
    drop.Send(OnNetEvent);
    const std::vector<BlockedEvent> reports = RecentBlockedEvents();
    EXPECT_EQ(reports.size(), 1u);
    return reports.empty() ? BlockedEvent{} : reports[0];
  }
};

TEST_F(NetEvents, EachFieldStandsForItself) {
  Tag({});
  const std::wstring app = kApp;
  const std::wstring ends = L" 192.0.2.7:50000 203.0.113.5:443";
  const std::wstring package = L" S-1-15-2-1 6";
  const struct {
    void (*make)(MadeDrop&);
    std::wstring told;
  } rows[] = {
      {[](auto&) {}, app + package + ends},
      {[](auto& d) { d.event.flags = 0; }, L"  0 :0 :0"},
      {[](auto& d) { d.event.flags ^= 0x14; }, app + package + L" 192.0.2.7:50000 :0"},
      {[](auto& d) { d.event.flags ^= 0x100; }, app + package + L" :50000 :443"},
      {[](auto& d) { d.event.ip_version = platform::kIpV6; },
       app + package + L" :::50000 2001:db8::1:0:443"},
      {[](auto& d) { d.app_id.resize(1); }, package + ends},
      {[](auto& d) { d.app_id.assign(4, 0); }, package + ends},
      {[](auto& d) { d.app_id.resize(d.app_id.size() + 3); }, app + package + ends},
      {[](auto& d) { d.app_id = DeviceAppId(L"\\device\\x"); }, L"\\device\\x" + package + ends},
      {[](auto& d) { d.package_sid = SidOf(L"S-1-5-21-1"); }, app + L"  6" + ends},
      {[](auto& d) { d.package_sid = SidOf(L"S-1-15-3-1"); }, app + L"  6" + ends},
      {[](auto& d) { d.package_sid.pop_back(); }, app + L"  6" + ends},
  };
  for (const auto& row : rows) {
    MadeDrop drop;
    row.make(drop);
    const BlockedEvent told = Told(drop);
    EXPECT_EQ(Format(L"%s %s %u %s:%u %s:%u", told.app, told.package_sid, told.protocol,
                     told.local_addr, told.local_port, told.remote_addr, told.remote_port),
              row.told);
  }
}

TEST_F(NetEvents, WhatIsNotTheProductsIsOnlyCounted) {
  Tag({});
  OnNetEvent(nullptr, nullptr);
  OnNetEventLegacy(nullptr, nullptr);
  MadeDrop foreign, bare, other, allowed;
  foreign.event.classification->filter_id = 8;
  bare.event.classification.reset();
  other.event.type = 4;
  allowed.event.type = platform::kEventClassifyAllow;
  for (MadeDrop* event : {&foreign, &bare, &other, &allowed}) {
    event->Send(OnNetEvent);
    event->Send(OnNetEventLegacy);
  }
  EXPECT_EQ(Core.NetEvents, 10u);
  EXPECT_EQ(Core.NetDrops, 0u);
  EXPECT_TRUE(RecentBlockedEvents().empty());
  EXPECT_EQ(LogCount("First WFP net event received - blocked-connection reporting is working"), 1u);
  MadeDrop().Send(OnNetEventLegacy);
  EXPECT_EQ(Core.NetDrops, 1u);
  EXPECT_EQ(RecentBlockedEvents().size(), 1u);
}

// The port belongs to W32Time over TCP and IPv4, to the DNS client over UDP and IPv6.
TEST_F(NetEvents, ServiceIsTheFiltersOrElseThePorts) {
  machine_.network.SetPortOwners(platform::PortTable::kTcp, 4, {{50000, 2108}});
  machine_.network.SetPortOwners(platform::PortTable::kUdp, 6, {{50000, 1944}});
  const std::wstring svchost = L"\\device\\harddiskvolume3\\windows\\system32\\SVCHOST.exe";
  const struct {
    FilterTag tag;
    std::wstring app;
    std::uint8_t protocol;
    std::uint32_t ip_version;
    std::wstring told;
  } rows[] = {
      {{0, FilterKind::kDefault, L"Dhcp"}, svchost, 6, platform::kIpV4, L"Dhcp default "},
      {{}, svchost, 6, platform::kIpV4, L"W32Time default "},
      {{}, svchost, 17, platform::kIpV6, L"Dnscache default "},
      {{0, FilterKind::kApplication, L"x"}, svchost, 6, platform::kIpV4, L"W32Time app "},
      {{0, FilterKind::kRule, L"no"}, svchost, 6, platform::kIpV4, L"W32Time rule no"},
      {{0, FilterKind::kLoopback, L"x"}, svchost, 6, platform::kIpV4, L"W32Time default "},
      {{}, L"\\device\\xsvchost.exe", 6, platform::kIpV4, L" default "},
      {{}, L"", 6, platform::kIpV4, L" default "},
  };
  for (const auto& row : rows) {
    Tag(row.tag);
    MadeDrop drop;
    drop.app_id = DeviceAppId(row.app);
    drop.event.protocol = row.protocol;
    drop.event.ip_version = row.ip_version;
    const BlockedEvent told = Told(drop);
    EXPECT_EQ(told.service + L" " + told.reason + L" " + told.rule, row.told);
  }
}

TEST_F(NetEvents, SubscriptionFailsTowardsNoReports) {
  const std::string none = "Blocked-connection notifications unavailable: ";
  const struct {
    const char* call;  // that fails
    bool newest, reports;
    std::string line;
  } rows[] = {
      {"", false, true, "Subscribed to WFP net events (FwpmNetEventSubscribe0)"},
      {"SubscribeNetEvents", true, false, none + "FwpmNetEventSubscribe: 0x00000005"},
      {"OpenEngineSession", true, false, none + "FwpmEngineOpen0 (events): 0x00000005"},
      {"SetOption", true, true, "FWPM_ENGINE_COLLECT_NET_EVENTS: 0x00000005"},
      {"SetOption", true, true, "FWPM_ENGINE_NET_EVENT_MATCH_ANY_KEYWORDS: 0x00000005"},
  };
  Install({}, {});
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    machine_.environment.engine_has_newest_events = row.newest;
    machine_.faults.FailAlways(row.call, platform::kAccessDenied);
    const std::size_t before = LogCount(row.line);
    Start();
    machine_.faults.Clear();
    EXPECT_EQ(LogCount(row.line), before + 1);
    ClearRecentEvents();
    Connect(AppConnection());
    EXPECT_EQ(RecentBlockedEvents().size(), row.reports ? 1u : 0u);
    EXPECT_EQ(machine_.engine.open_sessions(), row.reports ? 2u : 1u);
    Stop();
    EXPECT_EQ(machine_.engine.open_sessions(), 1u);
  }
  EXPECT_EQ(LogCount("FwpmNetEventSubscribe4 failed (0x0000007F"), 1u);
  EXPECT_EQ(LogCount(") - falling back to FwpmNetEventSubscribe0"), 2u);
}

}  // namespace
}  // namespace kestrelon

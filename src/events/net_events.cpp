#include "events/net_events.h"

#include <optional>
#include <string>
#include <utility>

#include "core/error_text.h"
#include "core/service_log.h"
#include "events/activity_log.h"
#include "events/allow_events.h"
#include "events/allowed_connections.h"
#include "events/engine_options.h"
#include "events/event_fields.h"
#include "events/service_for_port.h"
#include "filtering/filter_engine.h"
#include "identity/paths.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

// Both 0 or both set.
platform::EngineHandle event_session GUARDED_BY(ConfigGuard) = 0;
platform::SubscriptionHandle event_subscription GUARDED_BY(ConfigGuard) = 0;

// The tag of one of the product's filters. Nothing for a filter of somebody else's, or of a set
// that was replaced a moment ago.
std::optional<FilterTag> TagOf(std::uint64_t filter_id) {
  GuardLock lock(TheEngine.RecordGuard);
  const auto found = TheEngine.FilterTags.find(filter_id);
  if (found == TheEngine.FilterTags.end()) return std::nullopt;
  return found->second;
}

// A filter that blocks a service names it. For another one the port is asked, which says something
// only of a host process with a single service.
std::wstring ServiceOf(const platform::NetEvent& event, const FilterTag& tag,
                       const std::wstring& app) {
  if (tag.kind == FilterKind::kDefault && !tag.tag.empty()) return tag.tag;
  if (!platform::EqualIgnoringCase(FileNamePart(app), L"svchost.exe")) return {};
  return ServiceForPort(EventProtocol(event), EventIsIpv6(event), EventLocalPort(event));
}

const wchar_t* ReasonOf(FilterKind kind) {
  switch (kind) {
    case FilterKind::kApplication:
      return L"app";
    case FilterKind::kRule:
      return L"rule";
    default:
      return L"default";
  }
}

BlockedEvent BlockedBy(const FilterTag& tag, const platform::NetEvent& event) {
  BlockedEvent blocked;
  blocked.time = event.time;
  blocked.app = EventApp(event);
  blocked.direction = tag.direction;
  blocked.protocol = EventProtocol(event);
  blocked.local_addr = EventLocalAddress(event);
  blocked.remote_addr = EventRemoteAddress(event);
  blocked.local_port = EventLocalPort(event);
  blocked.remote_port = EventRemotePort(event);
  blocked.reason = ReasonOf(tag.kind);
  if (tag.kind == FilterKind::kRule) blocked.rule = tag.tag;
  blocked.package_sid = EventPackage(event);
  blocked.service = ServiceOf(event, tag, blocked.app);
  return blocked;
}

void TakeDrop(const platform::NetEvent& event) {
  if (!event.classification) return;
  const std::optional<FilterTag> tag = TagOf(event.classification->filter_id);
  if (!tag) return;
  if (++Core.NetDrops == 1) LogService(L"First connection blocked by Kestrelon reported");
  RecordBlockedEvent(BlockedBy(*tag, event));
}

// Ends before any text is made for what is not wanted: there is an event for each connection.
void TakeAllow(const platform::NetEvent& event) {
  if (!event.classification || !AllowEventsOn() || event.classification->is_loopback) return;
  const std::optional<std::uint32_t> direction = DirectionOfLayer(event.classification->layer_id);
  if (!direction) return;
  ConnectionRecord record;
  record.app = EventApp(event);
  record.package_sid = EventPackage(event);
  record.direction = *direction;
  record.protocol = EventProtocol(event);
  record.remote_addr = EventRemoteAddress(event);
  record.remote_port = *direction == 0 ? EventRemotePort(event) : EventLocalPort(event);
  record.first = event.time;
  record.last = event.time;
  record.count = 1;
  const std::optional<FilterTag> tag = TagOf(event.classification->filter_id);
  if (tag && tag->kind == FilterKind::kRule) record.rule = tag->tag;
  RecordAllowedConnection(std::move(record));
}

void TakeEvent(const platform::NetEvent* event, platform::NetEventRecord form) {
  if (++Core.NetEvents == 1) {
    LogService(L"First WFP net event received - blocked-connection reporting is working");
  }
  if (event == nullptr) return;
  if (event->type == platform::kEventClassifyDrop) {
    TakeDrop(*event);
  } else if (event->type == platform::kEventClassifyAllow &&
             form == platform::NetEventRecord::kNewest) {
    TakeAllow(*event);
  }
}

// The edge to the platform, which knows no exceptions: what can't be had costs this one event.
void ReceiveEvent(const platform::NetEvent* event, platform::NetEventRecord form) noexcept {
  try {
    TakeEvent(event, form);
  } catch (...) {
    return;
  }
}

// An option that can't be set may stand already, or fewer drops are reported.
void SetReportingOptions() {
  if (const platform::Code code = SetEngineOption(platform::kCollectNetEvents, 1)) {
    LogService(L"FWPM_ENGINE_COLLECT_NET_EVENTS: %s", ErrorText(code));
  }
  if (const platform::Code code = SetEngineOption(platform::kNetEventKeywords, kDropKeywords)) {
    LogService(L"FWPM_ENGINE_NET_EVENT_MATCH_ANY_KEYWORDS: %s", ErrorText(code));
  }
}

// To the newest record, or to the oldest on a system without it.
bool Subscribe(platform::EngineHandle session, platform::SubscriptionHandle& subscription,
               std::wstring& error) {
  const wchar_t* form = L"FwpmNetEventSubscribe4";
  platform::Code code = platform::SubscribeNetEvents(session, platform::NetEventRecord::kNewest,
                                                     OnNetEvent, nullptr, subscription);
  if (code != platform::kSuccess) {
    LogService(L"FwpmNetEventSubscribe4 failed (%s) - falling back to FwpmNetEventSubscribe0",
               ErrorText(code));
    form = L"FwpmNetEventSubscribe0";
    code = platform::SubscribeNetEvents(session, platform::NetEventRecord::kOldest,
                                        OnNetEventLegacy, nullptr, subscription);
  }
  if (code != platform::kSuccess) {
    error = L"FwpmNetEventSubscribe: " + ErrorText(code);
    return false;
  }
  LogService(L"Subscribed to WFP net events (%s)", form);
  return true;
}

bool OpenReports(std::wstring& error) REQUIRES(ConfigGuard) {
  platform::SessionOptions options;
  options.name = L"Kestrelon events";
  options.flags = platform::kSessionDynamic;
  platform::EngineHandle session = 0;
  const platform::Code code = platform::OpenEngineSession(options, session);
  if (code != platform::kSuccess) {
    error = L"FwpmEngineOpen0 (events): " + ErrorText(code);
    return false;
  }
  SetReportingOptions();
  if (!Subscribe(session, event_subscription, error)) {
    platform::CloseEngineSession(session);
    return false;
  }
  event_session = session;
  return true;
}

}  // namespace

void StartNetEvents() {
  if (event_session != 0) return;
  std::wstring error;
  if (!OpenReports(error)) LogService(L"Blocked-connection notifications unavailable: %s", error);
}

void StopNetEvents() {
  if (event_session == 0) return;
  // The option is the machine's and would stay for nobody to listen.
  SwitchAllowEvents(false);
  platform::UnsubscribeNetEvents(event_session, event_subscription);
  platform::CloseEngineSession(event_session);
  event_session = 0;
  event_subscription = 0;
}

platform::EngineHandle NetEventSession() {
  return event_session;
}

void OnNetEvent(void* /*context*/, const platform::NetEvent* event) {
  ReceiveEvent(event, platform::NetEventRecord::kNewest);
}

void OnNetEventLegacy(void* /*context*/, const platform::NetEvent* event) {
  ReceiveEvent(event, platform::NetEventRecord::kOldest);
}

}  // namespace kestrelon

#include "events/connection_events.h"

namespace kestrelon {
namespace {

const char* DirectionWord(std::uint32_t direction) {
  return direction == 1 ? "in" : "out";
}

void AddUnlessEmpty(Json& object, const char* key, const std::wstring& text) {
  if (!text.empty()) object[key] = text;
}

}  // namespace

Json BlockedEventToJson(const BlockedEvent& event) {
  Json object;
  object["time"] = event.time;
  object["app"] = event.app;
  object["dir"] = DirectionWord(event.direction);
  object["protocol"] = event.protocol;
  object["local_addr"] = event.local_addr;
  object["local_port"] = event.local_port;
  object["remote_addr"] = event.remote_addr;
  object["remote_port"] = event.remote_port;
  object["reason"] = event.reason;
  AddUnlessEmpty(object, "rule", event.rule);
  AddUnlessEmpty(object, "package_sid", event.package_sid);
  AddUnlessEmpty(object, "service", event.service);
  object["count"] = event.count;
  return object;
}

Json ConnectionRecordToJson(const ConnectionRecord& record) {
  Json object;
  object["app"] = record.app;
  AddUnlessEmpty(object, "package_sid", record.package_sid);
  object["dir"] = DirectionWord(record.direction);
  object["protocol"] = record.protocol;
  object["remote_addr"] = record.remote_addr;
  object["remote_port"] = record.remote_port;
  object["first"] = record.first;
  object["last"] = record.last;
  object["count"] = record.count;
  AddUnlessEmpty(object, "rule", record.rule);
  return object;
}

}  // namespace kestrelon

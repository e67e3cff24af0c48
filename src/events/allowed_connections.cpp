#include "events/allowed_connections.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <utility>

#include "base/guard.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr std::size_t kMostConnections = 5000;

Guard AllowedGuard("AllowedGuard", GuardRank::kLeaf);
AllowedSelection selection GUARDED_BY(AllowedGuard);
std::map<std::wstring, ConnectionRecord> ConnectionTable GUARDED_BY(AllowedGuard);

bool Holds(const std::vector<std::wstring>& texts, const std::wstring& text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

bool HoldsIgnoringCase(const std::vector<std::wstring>& texts, const std::wstring& text) {
  return std::any_of(texts.begin(), texts.end(), [&text](const std::wstring& one) {
    return platform::EqualIgnoringCase(one, text);
  });
}

bool IsWanted(const ConnectionRecord& record, const std::wstring& lower_app)
    REQUIRES(AllowedGuard) {
  if (HoldsIgnoringCase(selection.tracked_rules, record.rule)) return true;
  if (!selection.log_all) return false;
  return selection.every_app || Holds(selection.log_paths, lower_app) ||
         HoldsIgnoringCase(selection.log_sids, record.package_sid);
}

std::wstring KeyOf(const ConnectionRecord& record, const std::wstring& lower_app) {
  const std::wstring direction = std::to_wstring(record.direction);
  const std::wstring protocol = std::to_wstring(record.protocol);
  const std::wstring port = std::to_wstring(record.remote_port);
  std::wstring key = lower_app;
  for (const std::wstring* part :
       {&record.package_sid, &direction, &protocol, &record.remote_addr, &port, &record.rule}) {
    key.append(L"|").append(*part);
  }
  return key;
}

// A walk, as it happens once for each new connection beyond the limit.
void DropOldest() REQUIRES(AllowedGuard) {
  const auto oldest =
      std::min_element(ConnectionTable.begin(), ConnectionTable.end(),
                       [](const auto& a, const auto& b) { return a.second.last < b.second.last; });
  ConnectionTable.erase(oldest);
}

}  // namespace

void SelectAllowed(AllowedSelection wanted, bool on) {
  GuardLock lock(AllowedGuard);
  selection = std::move(wanted);
  if (!on) {
    ConnectionTable.clear();
  } else if (!selection.log_all) {
    std::erase_if(ConnectionTable, [](const auto& entry) { return entry.second.rule.empty(); });
  }
}

void RecordAllowedConnection(ConnectionRecord record) {
  const std::wstring lower_app = platform::LowerCase(record.app);
  GuardLock lock(AllowedGuard);
  if (!IsWanted(record, lower_app)) return;
  std::wstring key = KeyOf(record, lower_app);
  const auto known = ConnectionTable.find(key);
  if (known != ConnectionTable.end()) {
    ++known->second.count;
    known->second.last = std::max(known->second.last, record.last);
    return;
  }
  if (ConnectionTable.size() >= kMostConnections) DropOldest();
  ConnectionTable.emplace(std::move(key), std::move(record));
}

AllowedList AllowedConnections() {
  AllowedList list;
  GuardLock lock(AllowedGuard);
  list.tracked_rules = selection.tracked_rules;
  list.connections.reserve(ConnectionTable.size());
  for (const auto& [key, record] : ConnectionTable) list.connections.push_back(record);
  return list;
}

void ClearAllowedConnections() {
  GuardLock lock(AllowedGuard);
  ConnectionTable.clear();
}

}  // namespace kestrelon

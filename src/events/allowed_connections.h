// The bounded table of connections that were allowed, for those who asked for it.
#pragma once

#include <string>
#include <vector>

#include "events/connection_events.h"

namespace kestrelon {

// Which connections are wanted. With `log_all` it is those of every application, or those of the
// listed ones alone, even if nothing on the machine is found of these.
struct AllowedSelection {
  std::vector<std::wstring> log_paths;  // lower case
  std::vector<std::wstring> log_sids;   // of app packages
  std::vector<std::wstring> tracked_rules;
  bool log_all = false;
  bool every_app = true;  // there is no list of applications
};

// Takes the place of the selection. What is no longer wanted leaves the table: all of it when
// nothing asks for logging (`on` is false), records without a rule when only rules are tracked.
void SelectAllowed(AllowedSelection selection, bool on);

// Adds the record to the table or counts it there, if it is wanted. A full table loses the
// connection that was seen longest ago. Any thread, under no leaf guard.
void RecordAllowedConnection(ConnectionRecord record);

// What clients see.
struct AllowedList {
  std::vector<std::wstring> tracked_rules;
  std::vector<ConnectionRecord> connections;  // in the table's order
};
[[nodiscard]] AllowedList AllowedConnections();

void ClearAllowedConnections();

}  // namespace kestrelon

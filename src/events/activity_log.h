// What was blocked lately: the list that clients ask for, and activity.log.
#pragma once

#include <string>
#include <vector>

#include "events/connection_events.h"

namespace kestrelon {

// Merges a blocked connection with its recent twin or adds it to the list, writes first occurrences
// to activity.log, publishes it to the subscribers, and hands a program that no rule named to the
// follow worker. Any thread, under no leaf guard.
void RecordBlockedEvent(const BlockedEvent& event);

// A note of the service's own in activity.log. Any thread, under no leaf guard.
void ActivityNote(const std::wstring& text);

// The list, oldest first; emptying it leaves the file as it is.
[[nodiscard]] std::vector<BlockedEvent> RecentBlockedEvents();
void ClearRecentEvents();

}  // namespace kestrelon

// Events to the clients that asked for them.
#pragma once

#include <string>

namespace kestrelon {

// Queues one event, a JSON text in UTF-8, for all subscribers. Any thread, under any guard but a
// leaf; never waits for a client: of a client that doesn't read, the oldest events are dropped.
void PublishEvent(const std::string& text);

// Publishes {"type":word}.
void PublishConfigEvent(const std::string& word);

}  // namespace kestrelon

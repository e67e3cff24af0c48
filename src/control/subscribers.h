// Events to the clients that asked for them.
#pragma once

#include <string>

namespace kestrelon {

// Whether anybody would get an event that is published now: making the text of a frequent one for
// nobody costs more than all else that is done with it. Any thread, under any guard but a leaf.
[[nodiscard]] bool HasSubscribers();

// Queues one event, a JSON text in UTF-8, for all subscribers. Any thread, under any guard but a
// leaf; never waits for a client: of a client that doesn't read, the oldest events are dropped.
void PublishEvent(const std::string& text);

// Publishes {"type":word}.
void PublishConfigEvent(const std::string& word);

}  // namespace kestrelon

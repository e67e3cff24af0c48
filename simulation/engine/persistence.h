// The persistent and boot-time objects and the options as bytes.
#pragma once

#include "simulation/engine/net_event_options.h"
#include "simulation/engine/object_store.h"

namespace simulation {

[[nodiscard]] Bytes WritePersistent(const ObjectList& objects, const NetEventOptions& options);

// Reads what WritePersistent wrote, checking every filter and option anew. False for anything else;
// `objects` and `options` are unchanged then.
[[nodiscard]] bool ReadPersistent(const Bytes& bytes, ObjectList& objects,
                                  NetEventOptions& options);

}  // namespace simulation

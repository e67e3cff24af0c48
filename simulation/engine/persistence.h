// The persistent and boot-time objects as bytes.
#pragma once

#include "simulation/engine/object_store.h"

namespace simulation {

[[nodiscard]] Bytes WriteObjects(const ObjectList& objects);

// Reads what WriteObjects wrote, checking every filter anew. False for anything else; `objects` is
// unchanged then.
[[nodiscard]] bool ReadObjects(const Bytes& bytes, ObjectList& objects);

}  // namespace simulation

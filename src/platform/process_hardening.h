// What a process does for its own safety before anything else.
#pragma once

#include "platform/codes.h"

namespace kestrelon::platform {

// Turns on, for this process and for good, what the platform has against strange code in it and
// what costs the product nothing (docs/security.md tells what, and what is left off). To be called
// first in main: libraries are loaded when something of theirs is first called, and from the
// system's directory alone behind this call. Answers the first failure; the rest is on all the
// same.
Code HardenProcess();

}  // namespace kestrelon::platform

// The access to the product's objects in the engine: what keeps administrators from changing the
// firewall behind its back, and the door that an elevated removal opens again.
#pragma once

#include "platform/security.h"

namespace kestrelon {

// Everything for SYSTEM; administrators may look at all, may not delete, change or link to
// anything, and keep WRITE_DAC on purpose: through it an elevated uninstall reopens the objects.
//
// Both descriptors are built at first use, from any thread, and live until the process ends. One
// that could not be built is empty, and goes to the engine as none.
[[nodiscard]] const platform::SecurityDescriptor& LockDescriptor();

// Everything for both.
[[nodiscard]] const platform::SecurityDescriptor& UnlockDescriptor();

}  // namespace kestrelon

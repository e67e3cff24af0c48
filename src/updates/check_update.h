// One look for an update.
#pragma once

namespace kestrelon {

// Fetches the manifest of this machine's channel, verifies and reads it, and tells in state and
// logs what came of it. Runs on the update thread. What was found before stays after a failure.
void CheckForUpdate(bool manual);

}  // namespace kestrelon

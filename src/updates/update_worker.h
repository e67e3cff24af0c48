// When to look for an update, and the one thread that does update work.
#pragma once

#include <cstdint>
#include <string>

#include "base/guard.h"
#include "config/config.h"
#include "core/core_state.h"

namespace kestrelon {

// At the start, before anything is applied: when the first check is due, and when the last was.
void StartUpdateSchedule();

// Starts a check if one is due, or at once when `manual`; not while an update is being installed.
// Also notices an installation that has ended without stopping the service, and reopens the window
// after one. Returns at once.
void UpdateWorker(const Config& config, bool manual) REQUIRES(ConfigGuard);

// Starts the installation of the update that was found, for a client in a session (-1 for none)
// with a language. False with the refusal in `error`. Returns at once.
[[nodiscard]] bool RequestInstall(std::int64_t session, const std::wstring& language,
                                  std::wstring& error);

// Ends what runs and waits for its thread; nothing starts afterwards.
void StopUpdates();

}  // namespace kestrelon

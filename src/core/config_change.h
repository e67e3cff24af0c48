// Every road to other filters: a new configuration with its rollback, the present one again, and
// the block-all that stands behind a double failure.
#pragma once

#include <string>

#include "base/guard.h"
#include "config/config.h"
#include "config/json.h"
#include "core/core_state.h"

namespace kestrelon {

// Makes a validated configuration live, or leaves everything as it was. The order finds failures
// while they still cost nothing: the disk is tested first, filters are swapped in one transaction,
// and a save that then fails brings the previous filters back. `reply` is the client's answer.
void SetConfig(Json& reply, Config config) REQUIRES(ConfigGuard);

// Installs the live configuration again and saves what compiling it learnt. `cause` is a word for
// the log. A failure leaves the previous filters and its text in LastError; only a text that
// differs from the last one is logged.
void ReApply(const std::wstring& cause) REQUIRES(ConfigGuard);

// Blocks all that can be blocked, loopback as the user has it. The live configuration stays: it is
// not in force, and is retried.
void BlockAllFallback() REQUIRES(ConfigGuard);

// Opens the engine, waiting up to a minute for it at boot, makes `config` the live one and installs
// it; falls back to block-all. False, with the persistent filters as they were, only when the
// engine can't be opened.
[[nodiscard]] bool FirstApply(Config config, std::wstring& error) EXCLUDES(ConfigGuard);

}  // namespace kestrelon

// The modules as a client is shown them, and its decision to turn one on or off.
#pragma once

#include <string>

#include "config/config.h"
#include "config/json.h"

namespace kestrelon {

// An array with one object for each known module: what its file is, what it asks for, whether it
// is approved, active and running. May hash and verify files.
[[nodiscard]] Json ModuleStatusList(const Config& config);

// What a client wants of a module.
struct ModuleChange {
  std::wstring id;
  bool enabled = false;
  std::wstring grant;   // the text that the user was shown and has approved
  bool remove = false;  // when turned off: the approval is forgotten too
};

// Makes the change in `config`, which the caller then applies. A module is turned on only as its
// user saw it: verified, and asking for exactly `change.grant`. False, with `config` as it was and
// a sentence in `error`, when that is not so.
[[nodiscard]] bool SetModule(Config& config, const ModuleChange& change, std::wstring& error);

}  // namespace kestrelon

// The predefined rules: what Windows itself must be allowed for names, addresses and the local
// network to work, and how older configurations are brought up to the present generation.
#pragma once

#include <vector>

#include "config/config.h"

namespace kestrelon {

inline constexpr std::int32_t kPresetsGeneration = 9;

// Name of the rule whose connections the system tracks by itself.
inline constexpr const wchar_t* kDownloadsRule = L"Windows downloads for the signed-in user";

struct PresetRule {
  std::int32_t generation = 1;   // the generation that introduced the row
  bool default_enabled = false;  // on in a fresh default configuration
  RuleEntry rule;                // its own `enabled` is false
};

// The table, made afresh: 15 rows in their order.
[[nodiscard]] std::vector<PresetRule> PresetRules();

// The configuration of a first start.
[[nodiscard]] Config DefaultConfig();

// Brings a configuration up to the present generation without opening what the user did not have.
// True if it changed, the generation alone included; the caller then saves it.
[[nodiscard]] bool UpgradePresets(Config& config);

}  // namespace kestrelon

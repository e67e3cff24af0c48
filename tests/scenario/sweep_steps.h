// What the product does while faults strike: each step brings a machine to the moment before the
// trouble and then acts.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/scenario/world.h"

namespace kestrelon::test {

// Allowed by its hash, and replaced since then.
inline constexpr const wchar_t* kReplacedProgram = L"C:\\Tools\\replaced.exe";

// The last working copy.
inline const std::wstring kLastGood = std::wstring(kConfigFile) + L".lastgood";

using Act = std::function<void(World& world)>;
using Describe = std::function<std::string(World& world)>;

struct SweepStep {
  // What of it is swept beyond the acting thread's calls, or less than those.
  enum class Part {
    kWhole,
    kWithWorker,  // another thread does the work, and no third has anything to do
    kToEngine,    // from the opening of the engine on it does what a step before it does
  };

  const char* name;  // in the table of docs/failures.md
  Act prepare;       // undisturbed
  Act act;           // its result does not matter, its traces do
  // What it leaves beside filters and config.json, in words; of what outlives the process.
  Describe beside = {};
  Part part = Part::kWhole;

  // The name's letters, for the names of the cases.
  std::string letters() const;
  friend void PrintTo(const SweepStep& step, std::ostream* out) { *out << step.letters(); }
};

// In the order of the table.
[[nodiscard]] const std::vector<SweepStep>& SweepSteps();

// Connections for all programs and hosts that a step may open or close.
[[nodiscard]] std::vector<Attempt> SweepProbes();

// Whether it is one of the last of them: what the predefined rules alone permit.
[[nodiscard]] bool IsPredefined(const Attempt& probe);

// What the judge is to know of the machine as it is now: the networks that a blocklist's cache
// brings into force at the next start.
[[nodiscard]] std::wstring CachedNetworks(World& world);

}  // namespace kestrelon::test

// What the bench's programs exchange beyond the engine's own records: connections, verdicts and
// what subscribers are told, in the form of simulation/engine/wire.h.
#pragma once

#include <string>

#include "simulation/engine/connection.h"
#include "simulation/engine/subscription.h"
#include "simulation/engine/wire.h"

namespace simulation {

// What is told of a verdict: the deciding filter without its conditions, of which there may be
// tens of thousands.
struct VerdictSummary {
  bool permit = false;
  bool tied_conflict = false;  // see Verdict
  bool matched = false;        // the rest is of the deciding filter; no filter matched otherwise
  Guid filter;
  std::wstring name;
  Value weight;
  friend bool operator==(const VerdictSummary&, const VerdictSummary&) = default;
};

VerdictSummary Summarize(const Verdict& verdict);
void Put(WireWriter& writer, const Connection& connection);
void Put(WireWriter& writer, const VerdictSummary& summary);
void Put(WireWriter& writer, const FilterChange& change);
void Put(WireWriter& writer, const NetEvent& event);
Connection TakeConnection(WireReader& reader);
VerdictSummary TakeVerdictSummary(WireReader& reader);
FilterChange TakeFilterChange(WireReader& reader);
// Fails for a type that is none of NetEventType.
NetEvent TakeNetEvent(WireReader& reader);

// The least bytes that a connection takes: what a count of them must be followed by.
inline constexpr std::size_t kSmallestConnection = 16 + 4 + 4 + 4 + 1 + 4 + 4 + 16 + 16 + 2 + 2 + 4;

}  // namespace simulation

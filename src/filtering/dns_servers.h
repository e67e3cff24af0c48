// The machine's DNS servers, for rules that name "$dns".
#pragma once

#include <string>

namespace kestrelon {

// The servers of all adapters that are up, each once, in the platform's order, ", "-separated;
// empty if none is known. The order counts: a change of it is a change. May block on the platform.
[[nodiscard]] std::wstring CollectDnsServers();

}  // namespace kestrelon

// Which service a shared host process stands for, by the port that it uses.
#pragma once

#include <cstdint>
#include <string>

namespace kestrelon {

// The key name of the service whose process owns a local port; empty for a process with no service
// or with several, for other protocols than TCP and UDP, and on any failure. Asks the platform for
// its port table at each call, for the services at most every 5 seconds. Any thread.
[[nodiscard]] std::wstring ServiceForPort(std::uint32_t protocol, bool is_v6,
                                          std::uint16_t local_port);

}  // namespace kestrelon

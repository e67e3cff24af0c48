// The process as the service KestrelonSvc.
#pragma once

#include <cstdint>

namespace kestrelon {

inline constexpr const wchar_t* kServiceName = L"KestrelonSvc";

// What the service manager runs: start, loop and stop of the core, with every state reported.
void ServiceEntry();

// Answers a control of the service manager's, on its thread: 0 for done.
std::uint32_t HandleServiceControl(std::uint32_t control);

}  // namespace kestrelon

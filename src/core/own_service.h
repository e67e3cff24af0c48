// The product's service as the service manager knows it.
#pragma once

#include <cstdint>

#include "platform/services.h"

namespace kestrelon {

inline constexpr const wchar_t* kServiceName = L"KestrelonSvc";

// Opens it for the rights in `access`; kServiceNotFound where it is not registered.
[[nodiscard]] platform::Code OpenOwnService(std::uint32_t access, platform::ServiceHandle& service);

// Has the manager start it, and doesn't wait until it runs. False when it is neither on its way up
// then nor up already.
bool StartOwnService();

}  // namespace kestrelon

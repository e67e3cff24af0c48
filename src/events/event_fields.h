// The fields of the platform's events in the form of the product's records.
//
// A field that the event doesn't have, or that has no text, is empty or zero. Any thread.
#pragma once

#include <cstdint>
#include <string>

#include "platform/net_events.h"

namespace kestrelon {

// Win32 path of the application. May look at volumes and files.
[[nodiscard]] std::wstring EventApp(const platform::NetEvent& event);

// SID of the app container; empty for any other SID, which the platform may put there too.
[[nodiscard]] std::wstring EventPackage(const platform::NetEvent& event);

[[nodiscard]] std::uint32_t EventProtocol(const platform::NetEvent& event);

// Whether the event says that its addresses are IPv6.
[[nodiscard]] bool EventIsIpv6(const platform::NetEvent& event);

[[nodiscard]] std::wstring EventLocalAddress(const platform::NetEvent& event);
[[nodiscard]] std::wstring EventRemoteAddress(const platform::NetEvent& event);

[[nodiscard]] std::uint16_t EventLocalPort(const platform::NetEvent& event);
[[nodiscard]] std::uint16_t EventRemotePort(const platform::NetEvent& event);

}  // namespace kestrelon

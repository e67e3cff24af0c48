// The conditions that the product's filters are made of.
//
// The engine treats conditions with one key as alternatives and requires those with different keys
// all together; conditions with one key must therefore stand side by side.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/guid.h"
#include "config/address_spec.h"
#include "platform/security.h"
#include "platform/wfp_records.h"

namespace kestrelon {

using ConditionList = std::vector<platform::Condition>;

[[nodiscard]] platform::Condition ProtocolIs(std::uint8_t protocol);
[[nodiscard]] platform::Condition AppIs(platform::Bytes app_id);
[[nodiscard]] platform::Condition PackageIs(platform::Sid package);
[[nodiscard]] platform::Condition UserIs(platform::SecurityDescriptor descriptor);
[[nodiscard]] platform::Condition IsLoopback();

// The remote address is (or lies in) `address`; also for inbound filters.
[[nodiscard]] platform::Condition RemoteIs(const AddressEntry& address);

// A port of `field`, kFieldRemotePort or kFieldLocalPort, lies in `ports`.
[[nodiscard]] platform::Condition PortIs(const Guid& field, const PortRange& ports);

// The descriptor that lets the holder of a SID match, as UserIs takes it. The engine checks it
// against the token of the connection, so a service's SID tells it apart inside a shared process.
[[nodiscard]] bool UserDescriptor(const std::wstring& sid_text,
                                  platform::SecurityDescriptor& descriptor);

}  // namespace kestrelon

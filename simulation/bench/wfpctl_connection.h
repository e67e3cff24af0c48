// Connections and conditions in words.
#pragma once

#include <string>
#include <vector>

#include "simulation/bench/wfpctl_arguments.h"
#include "simulation/engine/connection.h"

namespace simulation {

// An address of either family.
struct Address {
  bool v6 = false;
  std::uint32_t v4_value = 0;  // host order
  kestrelon::platform::ByteArray16 v6_value{};
};

[[nodiscard]] bool AddressOfText(const std::wstring& text, Address& address);

// Takes the options that describe a connection; mistakes are left with the arguments.
Connection TakeConnection(Arguments& arguments);

// Takes the options that describe a filter's conditions: the same names, each one condition.
std::vector<Condition> TakeConditions(Arguments& arguments);

// "connect-v4", "connect-v6", "accept-v4", "accept-v6"; the key's text for another layer.
std::wstring LayerName(const Guid& layer);
[[nodiscard]] bool LayerOfName(const std::wstring& name, Guid& layer);

}  // namespace simulation

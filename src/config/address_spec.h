// The grammar of addresses and ports in rules, such as "10.0.0.0/8, 10.1.1.1-10.1.1.9, $dns" or
// "80, 443, 8000-8100".
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrelon {

// One parsed address item.
struct AddressEntry {
  std::uint32_t family = 4;                // 4 or 6
  std::uint32_t low = 0;                   // family 4: first address, host order, inclusive
  std::uint32_t high = 0;                  // family 4: last address, host order, inclusive
  std::array<std::uint8_t, 16> address{};  // family 6: network order, host bits as written
  std::uint32_t prefix = 128;              // family 6: 0..128

  friend bool operator==(const AddressEntry&, const AddressEntry&) = default;
};

// One parsed port item, both ends inclusive.
struct PortRange {
  std::uint16_t low = 0;
  std::uint16_t high = 0;

  friend bool operator==(const PortRange&, const PortRange&) = default;
};

// Parses one item: an address, an IPv4 range or a network, without blanks. `entry` is changed in
// any case.
[[nodiscard]] bool ParseAddress(std::wstring_view item, AddressEntry& entry);

// Parses an address text; items keep the order of the text, "$dns" adds none. False with a
// sentence at the first invalid item; `entries` then holds what came before it.
[[nodiscard]] bool ParseAddressSpec(std::wstring_view text, std::vector<AddressEntry>& entries,
                                    std::wstring& error);

// Parses a port text under the same conventions. An empty text means any port and gives no items.
[[nodiscard]] bool ParsePortSpec(std::wstring_view text, std::vector<PortRange>& ports,
                                 std::wstring& error);

// Whether an item of an address text is "$dns".
[[nodiscard]] bool SpecHasDns(std::wstring_view text);

// The items joined by ", ", each "$dns" replaced; an empty replacement drops the item.
[[nodiscard]] std::wstring SpecReplaceDns(std::wstring_view text, std::wstring_view replacement);

}  // namespace kestrelon

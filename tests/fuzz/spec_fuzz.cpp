// Any text as addresses and as ports. What is accepted holds exactly the addresses that its items
// say, as the platform's own reader takes them: a filter made of it meets the first and the last of
// them, and neither of their neighbours.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "base/format.h"
#include "base/text.h"
#include "config/address_spec.h"
#include "filtering/filter_conditions.h"
#include "platform/wfp_records.h"
#include "simulation/engine/condition_match.h"
#include "tests/fuzz/property.h"

namespace kestrelon {
namespace {

using Address = platform::ByteArray16;  // in network order; of IPv4 only the last four bytes

// What one item says, first and last included.
struct Said {
  bool ipv6 = false;
  Address first{};
  Address last{};
};

bool ReadAddress(const std::string& text, bool ipv6, Address& address) {
  return inet_pton(ipv6 ? AF_INET6 : AF_INET, text.c_str(), &address[ipv6 ? 0 : 12]) == 1;
}

Said ReadItem(const std::string& item) {
  Said said;
  const std::size_t dash = item.find('-');
  const std::size_t slash = item.find('/');
  said.ipv6 = item.find(':') != std::string::npos;
  PROPERTY(ReadAddress(item.substr(0, std::min(dash, slash)), said.ipv6, said.first));
  said.last = said.first;
  if (dash != std::string::npos) PROPERTY(ReadAddress(item.substr(dash + 1), false, said.last));
  if (slash == std::string::npos) return said;
  const int fixed_bits = std::stoi(item.substr(slash + 1)) + (said.ipv6 ? 0 : 96);
  for (int bit = fixed_bits; bit < 128; ++bit) {
    const auto mask = static_cast<std::uint8_t>(0x80 >> bit % 8);
    said.first[static_cast<std::size_t>(bit / 8)] &= static_cast<std::uint8_t>(~mask);
    said.last[static_cast<std::size_t>(bit / 8)] |= mask;
  }
  return said;
}

// The neighbour above (1) or below (-1); false behind the end of the family.
bool Step(Address& address, bool ipv6, int by) {
  for (std::size_t i = 16; i-- > (ipv6 ? 0u : 12u);) {
    const int sum = address[i] + by;
    address[i] = static_cast<std::uint8_t>(sum);
    if (sum >= 0 && sum <= 255) return true;
  }
  return false;
}

bool IsMet(const simulation::ConditionGroups& groups, bool ipv6, const Address& address) {
  simulation::Connection connection;
  connection.layer = ipv6 ? platform::kLayerConnectV6 : platform::kLayerConnectV4;
  connection.remote_v6 = address;
  for (std::size_t i = 12; i < 16; ++i) {
    connection.remote_v4 = connection.remote_v4 << 8 | address[i];
  }
  return Matches(groups, simulation::Subject(connection));
}

void CheckWidth(const AddressEntry& entry, Said said) {
  PROPERTY(entry.family == (said.ipv6 ? 6u : 4u));
  platform::Filter filter;
  filter.layer = said.ipv6 ? platform::kLayerConnectV6 : platform::kLayerConnectV4;
  filter.conditions = {RemoteIs(entry)};
  const simulation::ConditionGroups groups = simulation::CompileConditions(filter);
  PROPERTY(IsMet(groups, said.ipv6, said.first) && IsMet(groups, said.ipv6, said.last));
  if (Step(said.first, said.ipv6, -1)) PROPERTY(!IsMet(groups, said.ipv6, said.first));
  if (Step(said.last, said.ipv6, 1)) PROPERTY(!IsMet(groups, said.ipv6, said.last));
}

std::wstring WithoutBlanksAroundDashes(std::wstring text) {
  for (const std::wstring_view blanks : {L" -", L"\t-", L"- ", L"-\t"}) {
    for (std::size_t at = 0; (at = text.find(blanks)) != std::wstring::npos;) {
      text.replace(at, 2, L"-");
    }
  }
  return text;
}

void CheckAddresses(const std::wstring& text) {
  std::vector<AddressEntry> entries;
  std::wstring error;
  if (!ParseAddressSpec(text, entries, error)) {
    PROPERTY(!error.empty());
    return;
  }
  const std::wstring joined = WithoutBlanksAroundDashes(text);
  std::size_t read = 0;
  for (const std::wstring_view part : SplitAt(joined, L",; \t")) {
    const std::string item = Utf8FromWide(Trim(part));
    if (item.empty() || item.front() == '$') continue;
    PROPERTY(read < entries.size());
    CheckWidth(entries[read++], ReadItem(item));
  }
  PROPERTY(read == entries.size());
  // Putting an address for each "$dns" adds entries and changes none of the others. Ranges with
  // blanks inside are left out: they are no single items to this function.
  if (text.find(L'-') != std::wstring::npos) return;
  std::vector<AddressEntry> again;
  PROPERTY(ParseAddressSpec(SpecReplaceDns(text, L""), again, error) && again == entries);
  PROPERTY(ParseAddressSpec(SpecReplaceDns(text, L"192.0.2.53"), again, error));
  PROPERTY((again.size() > entries.size()) == SpecHasDns(text));
}

void CheckPorts(const std::wstring& text) {
  std::vector<PortRange> ports;
  std::wstring error;
  if (!ParsePortSpec(text, ports, error)) {
    PROPERTY(!error.empty());
    return;
  }
  std::wstring in_full;
  for (const PortRange& range : ports) {
    PROPERTY(range.low <= range.high);
    in_full += Format(L"%u-%u,", range.low, range.high);
  }
  std::vector<PortRange> again;
  PROPERTY(ParsePortSpec(in_full, again, error) && again == ports);
}

}  // namespace
}  // namespace kestrelon

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring text = kestrelon::WideFromUtf8({reinterpret_cast<const char*>(data), size});
  PROPERTY(kestrelon::WideFromUtf8(kestrelon::Utf8FromWide(text)) == text);
  kestrelon::CheckAddresses(text);
  kestrelon::CheckPorts(text);
  return 0;
}

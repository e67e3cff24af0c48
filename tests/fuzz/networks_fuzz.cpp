// Any text as a feed: what comes out are single networks that may be blocked, each once, and they
// stand in the text as they are.
#include <algorithm>
#include <cstdint>
#include <set>
#include <string_view>

#include "base/text.h"
#include "blocklists/extract_networks.h"
#include "config/address_spec.h"
#include "tests/fuzz/property.h"

namespace kestrelon {
namespace {

// Networks that the machine's own life hangs on, as people write them.
constexpr std::wstring_view kReserved =
    L"0.0.0.0/8 10.0.0.0/8 100.64.0.0/10 127.0.0.0/8 169.254.0.0/16 172.16.0.0/12 192.168.0.0/16 "
    L"224.0.0.0-255.255.255.255";

void CheckEntry(const std::wstring& text, const std::vector<AddressEntry>& reserved) {
  std::vector<AddressEntry> parsed;
  std::wstring error;
  PROPERTY(ParseAddressSpec(text, parsed, error) && parsed.size() == 1);
  const AddressEntry& entry = parsed.front();
  if (entry.family == 6) {
    const unsigned first = entry.address[0] * 256u + entry.address[1];
    PROPERTY(entry.prefix >= 16);
    PROPERTY(first < 0xFC00 || (first >= 0xFE00 && first < 0xFE80) ||
             (first >= 0xFEC0 && first < 0xFF00));
    return;
  }
  PROPERTY(entry.high - entry.low < 0xFFFFFF);
  for (const AddressEntry& range : reserved) {
    PROPERTY(entry.high < range.low || entry.low > range.high);
  }
}

void Check(std::string_view text) {
  std::vector<AddressEntry> reserved;
  std::wstring error;
  PROPERTY(ParseAddressSpec(kReserved, reserved, error));
  std::size_t rejected = 0;
  const std::vector<std::wstring> entries = ExtractNetworks(text, &rejected);
  std::size_t written = 0;
  for (const std::wstring& entry : entries) {
    CheckEntry(entry, reserved);
    PROPERTY(text.find(Utf8FromWide(entry)) != std::string_view::npos);
    written += entry.size();
  }
  PROPERTY(std::set(entries.begin(), entries.end()).size() == entries.size());
  // The shortest candidate is "::".
  PROPERTY(written + 2 * rejected <= text.size());
  PROPERTY(ExtractNetworks(text) == entries);

  // The text twice, in lines of its own, has the same networks and twice the rejected ones; what is
  // extracted has just itself.
  std::size_t rejected_twice = 0;
  const std::string twice = std::string(text) + "\n" + std::string(text);
  PROPERTY(ExtractNetworks(twice, &rejected_twice) == entries);
  PROPERTY(rejected_twice == 2 * rejected);
  std::string list;
  for (const std::wstring& entry : entries) list += Utf8FromWide(entry) + "\r\n";
  PROPERTY(ExtractNetworks(list, &rejected) == entries && rejected == 0);
}

}  // namespace
}  // namespace kestrelon

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrelon::Check({reinterpret_cast<const char*>(data), size});
  return 0;
}

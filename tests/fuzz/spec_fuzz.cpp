// Any text as addresses and as ports: what is accepted comes to the same when it is written out in
// full and read again.
#include <algorithm>
#include <cstdint>
#include <string_view>

#include "base/format.h"
#include "base/text.h"
#include "config/address_spec.h"
#include "tests/fuzz/property.h"

namespace kestrelon {
namespace {

std::wstring Dotted(std::uint32_t address) {
  return Format(L"%u.%u.%u.%u", address >> 24, address >> 16 & 0xFF, address >> 8 & 0xFF,
                address & 0xFF);
}

std::wstring InFull(const AddressEntry& entry) {
  if (entry.family == 4) return Dotted(entry.low) + L"-" + Dotted(entry.high);
  std::wstring text;
  for (std::size_t i = 0; i < 16; i += 2) {
    text += (i == 0 ? L"" : L":") + HexText(&entry.address[i], 2);
  }
  return Format(L"%s/%u", text, entry.prefix);
}

void CheckAddresses(const std::wstring& text) {
  std::vector<AddressEntry> entries;
  std::wstring error;
  if (!ParseAddressSpec(text, entries, error)) {
    PROPERTY(!error.empty());
    return;
  }
  std::wstring in_full;
  for (const AddressEntry& entry : entries) {
    PROPERTY(entry.family == 4 || entry.family == 6);
    PROPERTY(entry.family == 6 || entry.low <= entry.high);
    PROPERTY(entry.family == 4 || entry.prefix <= 128);
    in_full += InFull(entry) + L"; ";
  }
  const auto same = [](const AddressEntry& a, const AddressEntry& b) {
    return a.family == b.family && (a.family == 4 ? a.low == b.low && a.high == b.high
                                                  : a.address == b.address && a.prefix == b.prefix);
  };
  std::vector<AddressEntry> again;
  PROPERTY(ParseAddressSpec(in_full, again, error));
  PROPERTY(std::equal(entries.begin(), entries.end(), again.begin(), again.end(), same));
  // Putting an address for each "$dns" adds entries and changes none of the others. Ranges with
  // blanks inside are left out: they are no single items to this function.
  if (text.find(L'-') != std::wstring::npos) return;
  PROPERTY(ParseAddressSpec(SpecReplaceDns(text, L""), again, error));
  PROPERTY(std::equal(entries.begin(), entries.end(), again.begin(), again.end(), same));
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

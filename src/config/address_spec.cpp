#include "config/address_spec.h"

#include <optional>

#include "base/format.h"
#include "base/text.h"
#include "platform/network.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr std::wstring_view kDnsItem = L"$dns";
constexpr std::size_t kMostDigits = 10;  // enough for 32 bits, and too few to overflow 64

bool IsBlank(wchar_t c) {
  return c == L' ' || c == L'\t';
}

bool IsDnsItem(std::wstring_view item) {
  return platform::EqualIgnoringCase(item, kDnsItem);
}

// The text without blanks around each "-", so that "1 - 5" is one item.
std::wstring JoinRanges(std::wstring_view text) {
  std::wstring joined;
  joined.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == L'-') {
      while (!joined.empty() && IsBlank(joined.back())) joined.pop_back();
    } else if (IsBlank(text[i]) && !joined.empty() && joined.back() == L'-') {
      continue;
    }
    joined += text[i];
  }
  return joined;
}

// The items of a text, trimmed and without empty ones.
std::vector<std::wstring_view> Items(std::wstring_view text) {
  std::vector<std::wstring_view> items = SplitAt(text, L",; \t");
  for (std::wstring_view& item : items) item = Trim(item);
  std::erase_if(items, [](std::wstring_view item) { return item.empty(); });
  return items;
}

// A number of 1 to 10 decimal digits that is at most `most`.
std::optional<std::uint32_t> Number(std::wstring_view text, std::uint32_t most) {
  if (text.empty() || text.size() > kMostDigits) return std::nullopt;
  std::uint64_t value = 0;
  for (const wchar_t c : text) {
    if (c < L'0' || c > L'9') return std::nullopt;
    value = value * 10 + static_cast<std::uint64_t>(c - L'0');
  }
  if (value > most) return std::nullopt;
  return static_cast<std::uint32_t>(value);
}

// What stands before and after the character at `at`.
struct Halves {
  std::wstring_view first;
  std::wstring_view second;
};

Halves CutAt(std::wstring_view text, std::size_t at) {
  return {text.substr(0, at), text.substr(at + 1)};
}

bool ParseRange(const Halves& ends, AddressEntry& entry) {
  entry.family = 4;
  return platform::Ipv4FromText(std::wstring(Trim(ends.first)), entry.low) &&
         platform::Ipv4FromText(std::wstring(Trim(ends.second)), entry.high) &&
         entry.low <= entry.high;
}

// Only an IPv6 address has a colon. Asking both readers would cost most lists twice the time.
bool IsIpv6(std::wstring_view address) {
  return address.find(L':') != std::wstring_view::npos;
}

bool ParseIpv6(std::wstring_view address, std::uint32_t prefix, AddressEntry& entry) {
  entry.family = 6;
  entry.prefix = prefix;
  return platform::Ipv6FromText(std::wstring(address), entry.address);
}

bool ParseNetwork(const Halves& parts, AddressEntry& entry) {
  const bool is_ipv6 = IsIpv6(parts.first);
  const auto prefix = Number(parts.second, is_ipv6 ? 128 : 32);
  if (!prefix) return false;
  if (is_ipv6) return ParseIpv6(parts.first, *prefix, entry);
  if (!platform::Ipv4FromText(std::wstring(parts.first), entry.low)) return false;
  const std::uint32_t mask = *prefix == 0 ? 0 : ~std::uint32_t{0} << (32 - *prefix);
  entry.family = 4;
  entry.low &= mask;
  entry.high = entry.low | ~mask;
  return true;
}

bool ParseSingle(std::wstring_view item, AddressEntry& entry) {
  if (IsIpv6(item)) return ParseIpv6(item, 128, entry);
  if (!platform::Ipv4FromText(std::wstring(item), entry.low)) return false;
  entry.family = 4;
  entry.high = entry.low;
  return true;
}

std::wstring AddressError(std::wstring_view item) {
  if (item.find(L'-') != std::wstring_view::npos) return Format(L"invalid IPv4 range: %s", item);
  if (item.find(L'/') != std::wstring_view::npos) {
    return Format(L"invalid network (CIDR): %s", item);
  }
  return Format(L"invalid IP address: %s", item);
}

bool ParsePorts(std::wstring_view item, PortRange& range) {
  const std::size_t dash = item.find(L'-');
  const Halves ends = dash == std::wstring_view::npos ? Halves{item, item} : CutAt(item, dash);
  const auto low = Number(Trim(ends.first), 65535);
  const auto high = Number(Trim(ends.second), 65535);
  if (!low || !high || *low > *high) return false;
  range.low = static_cast<std::uint16_t>(*low);
  range.high = static_cast<std::uint16_t>(*high);
  return true;
}

}  // namespace

bool ParseAddress(std::wstring_view item, AddressEntry& entry) {
  if (const std::size_t dash = item.find(L'-'); dash != std::wstring_view::npos) {
    return ParseRange(CutAt(item, dash), entry);
  }
  if (const std::size_t slash = item.find(L'/'); slash != std::wstring_view::npos) {
    return ParseNetwork(CutAt(item, slash), entry);
  }
  return ParseSingle(item, entry);
}

bool ParseAddressSpec(std::wstring_view text, std::vector<AddressEntry>& entries,
                      std::wstring& error) {
  entries.clear();
  const std::wstring joined = JoinRanges(text);
  for (const std::wstring_view item : Items(joined)) {
    if (IsDnsItem(item)) continue;
    AddressEntry entry;
    if (!ParseAddress(item, entry)) {
      error = AddressError(item);
      return false;
    }
    entries.push_back(entry);
  }
  return true;
}

bool ParsePortSpec(std::wstring_view text, std::vector<PortRange>& ports, std::wstring& error) {
  ports.clear();
  const std::wstring joined = JoinRanges(text);
  for (const std::wstring_view item : Items(joined)) {
    PortRange range;
    if (!ParsePorts(item, range)) {
      error = Format(L"invalid port or port range: %s", item);
      return false;
    }
    ports.push_back(range);
  }
  return true;
}

bool SpecHasDns(std::wstring_view text) {
  for (const std::wstring_view item : Items(text)) {
    if (IsDnsItem(item)) return true;
  }
  return false;
}

std::wstring SpecReplaceDns(std::wstring_view text, std::wstring_view replacement) {
  std::wstring replaced;
  for (std::wstring_view item : Items(text)) {
    if (IsDnsItem(item)) item = replacement;
    if (item.empty()) continue;
    if (!replaced.empty()) replaced += L", ";
    replaced += item;
  }
  return replaced;
}

}  // namespace kestrelon

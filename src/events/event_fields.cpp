#include "events/event_fields.h"

#include <string_view>

#include "base/text.h"
#include "identity/device_paths.h"
#include "platform/network.h"
#include "platform/security.h"

namespace kestrelon {
namespace {

constexpr std::wstring_view kAppContainerPrefix = L"S-1-15-2-";

bool Has(const platform::NetEvent& event, platform::NetEventFlags field) {
  return (event.flags & field) != 0;
}

// Written out here: each report has two, and the platform's way is longer than all else of one.
std::wstring Ipv4Text(std::uint32_t address) {
  std::wstring text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const std::uint32_t part = address >> shift & 0xFF;
    if (part >= 100) text += static_cast<wchar_t>(L'0' + part / 100);
    if (part >= 10) text += static_cast<wchar_t>(L'0' + part / 10 % 10);
    text += static_cast<wchar_t>(L'0' + part % 10);
    if (shift != 0) text += L'.';
  }
  return text;
}

std::wstring AddressText(const platform::NetEvent& event, platform::NetEventFlags field,
                         std::uint32_t v4, const platform::ByteArray16& v6) {
  if (!Has(event, platform::kEventHasIpVersion) || !Has(event, field)) return {};
  switch (event.ip_version) {
    case platform::kIpV4:
      return Ipv4Text(v4);
    case platform::kIpV6:
      return platform::Ipv6Text(v6);
    default:
      return {};
  }
}

}  // namespace

std::wstring EventApp(const platform::NetEvent& event) {
  if (!Has(event, platform::kEventHasAppId)) return {};
  const std::wstring device_path = WideFromUtf16Bytes(event.app_id);
  return device_path.empty() ? device_path : DeviceToWin32(device_path);
}

std::wstring EventPackage(const platform::NetEvent& event) {
  if (!Has(event, platform::kEventHasPackageId) || event.package_sid.empty()) return {};
  std::wstring text;
  if (platform::SidText(event.package_sid, text) != platform::kSuccess) return {};
  return text.starts_with(kAppContainerPrefix) ? text : std::wstring();
}

std::uint32_t EventProtocol(const platform::NetEvent& event) {
  return Has(event, platform::kEventHasProtocol) ? event.protocol : 0;
}

bool EventIsIpv6(const platform::NetEvent& event) {
  return Has(event, platform::kEventHasIpVersion) && event.ip_version == platform::kIpV6;
}

std::wstring EventLocalAddress(const platform::NetEvent& event) {
  return AddressText(event, platform::kEventHasLocalAddress, event.local_v4, event.local_v6);
}

std::wstring EventRemoteAddress(const platform::NetEvent& event) {
  return AddressText(event, platform::kEventHasRemoteAddress, event.remote_v4, event.remote_v6);
}

std::uint16_t EventLocalPort(const platform::NetEvent& event) {
  return Has(event, platform::kEventHasLocalPort) ? event.local_port : std::uint16_t{0};
}

std::uint16_t EventRemotePort(const platform::NetEvent& event) {
  return Has(event, platform::kEventHasRemotePort) ? event.remote_port : std::uint16_t{0};
}

}  // namespace kestrelon

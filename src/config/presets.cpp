#include "config/presets.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "identity/paths.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr const wchar_t* kLan = L"10.0.0.0/8, 172.16.0.0/12, 192.168.0.0/16, fe80::/10, fc00::/7";
constexpr const wchar_t* kLocal =
    L"10.0.0.0/8, 172.16.0.0/12, 192.168.0.0/16, 169.254.0.0/16, 224.0.0.0/4, 255.255.255.255, "
    L"fe80::/10, fc00::/7, ff00::/8";
constexpr const wchar_t* kSvchost = L"%SystemRoot%\\System32\\svchost.exe";
constexpr const wchar_t* kLsass = L"%SystemRoot%\\System32\\lsass.exe";
constexpr const wchar_t* kSystem = L"System";

// Well-known or derived by Windows from the service's name, alike on every machine.
constexpr const wchar_t* kInteractive = L"S-1-5-4";
constexpr const wchar_t* kIkeService =
    L"S-1-5-80-698886940-375981264-2691324669-2937073286-3841916615";
constexpr const wchar_t* kSstpService =
    L"S-1-5-80-3435701886-799518250-3791383489-3228296122-2938884314";

constexpr const wchar_t* kDnsRule = L"DNS (Windows DNS Client)";
constexpr const wchar_t* kSmbRule = L"Network drives (SMB, local network only)";
constexpr const wchar_t* kLlmnrRule = L"LLMNR (local name resolution)";
constexpr const wchar_t* kMdnsRule = L"mDNS (local name resolution)";
constexpr const wchar_t* kKernelRule = L"Windows kernel - local network";
constexpr const wchar_t* kRevocationRule = L"Certificate revocation checks (lsass)";

constexpr const wchar_t* kDnsServers = L"$dns";
constexpr const wchar_t* kDropList = L"drop";

constexpr std::uint32_t kOut = kDirectionOut;
constexpr std::uint32_t kBoth = kDirectionBoth;
constexpr std::uint32_t kTcp = 6;
constexpr std::uint32_t kUdp = 17;
constexpr std::uint32_t kIcmpV6 = 58;

bool IsNamed(const RuleEntry& rule, std::wstring_view name) {
  return platform::EqualIgnoringCase(rule.name, name);
}

bool HasRule(const Config& config, std::wstring_view name) {
  return std::any_of(config.rules.begin(), config.rules.end(),
                     [name](const RuleEntry& rule) { return IsNamed(rule, name); });
}

// Rows of the first generation are never added again: who deleted them is not overruled.
void AddNewRows(Config& config) {
  for (const PresetRule& row : PresetRules()) {
    if (row.generation == 1 || row.generation <= config.presets_version) continue;
    if (!HasRule(config, row.rule.name)) config.rules.push_back(row.rule);
  }
}

// The DNS rule of early generations reached any server; it is narrowed to the configured ones.
void NarrowDnsRule(Config& config) {
  for (RuleEntry& rule : config.rules) {
    if (IsNamed(rule, kDnsRule) && rule.remote.empty() && rule.remote_ports == L"53" &&
        platform::EqualIgnoringCase(ExpandPath(rule.app), ExpandPath(kSvchost)) &&
        rule.direction == kDirectionOut && rule.allow) {
      rule.remote = kDnsServers;
    }
  }
}

// The SMB rule of early generations held for every program; only the kernel needs it.
void NarrowSmbRule(Config& config) {
  for (RuleEntry& rule : config.rules) {
    if (IsNamed(rule, kSmbRule) && rule.app.empty() && rule.remote == kLan &&
        rule.remote_ports == L"445" && rule.protocol == kTcp && rule.direction == kDirectionOut &&
        rule.allow) {
      rule.app = kSystem;
    }
  }
}

void SwitchRules(Config& config, std::initializer_list<const wchar_t*> names, bool enabled) {
  for (RuleEntry& rule : config.rules) {
    for (const wchar_t* name : names) {
      if (IsNamed(rule, name)) rule.enabled = enabled;
    }
  }
}

// Who had the local network open keeps local name resolution, which was part of it.
void KeepLocalNames(Config& config) {
  const bool local_network_open =
      std::any_of(config.rules.begin(), config.rules.end(), [](const RuleEntry& rule) {
        return rule.enabled && rule.allow &&
               (IsNamed(rule, kSmbRule) || IsNamed(rule, kKernelRule));
      });
  if (local_network_open) SwitchRules(config, {kLlmnrRule, kMdnsRule}, true);
}

void AddDropList(Config& config) {
  const bool listed = std::any_of(
      config.blocklists.begin(), config.blocklists.end(),
      [](const std::wstring& id) { return platform::EqualIgnoringCase(id, kDropList); });
  if (!listed) config.blocklists.push_back(kDropList);
}

}  // namespace

std::vector<PresetRule> PresetRules() {
  struct Row {
    std::int32_t generation;
    bool default_enabled;
    const wchar_t* name;
    std::uint32_t direction;
    std::uint32_t protocol;
    std::wstring remote;
    const wchar_t* remote_ports;
    const wchar_t* local_ports;
    const wchar_t* app;
    const wchar_t* user;
  };
  const std::wstring lan = kLan;
  // For ICMP the engine matches the message type on the local port: 133 to 136 are router and
  // neighbour solicitation and advertisement.
  const Row rows[] = {
      {1, true, kDnsRule, kOut, 0, kDnsServers, L"53", L"", kSvchost, L""},
      {1, true, L"DHCP (IPv4 address)", kBoth, kUdp, L"", L"67", L"68", kSvchost, L""},
      {1, true, L"DHCPv6 (IPv6 address)", kBoth, kUdp, L"", L"547", L"546", kSvchost, L""},
      {1, true, L"NTP (Windows Time)", kOut, kUdp, L"", L"123", L"", kSvchost, L""},
      {2, true, L"IPv6 Neighbor Discovery (ICMPv6)", kBoth, kIcmpV6, L"", L"", L"133-136", L"",
       L""},
      {2, false, kSmbRule, kOut, kTcp, lan, L"445", L"", kSystem, L""},
      {4, false, kLlmnrRule, kBoth, kUdp, lan + L", 224.0.0.252, ff02::1:3", L"5355", L"", kSvchost,
       L""},
      {6, false, kMdnsRule, kBoth, kUdp, lan + L", 224.0.0.251, ff02::fb", L"5353", L"", kSvchost,
       L""},
      {4, true, kKernelRule, kBoth, 0, kLocal, L"", L"", kSystem, L""},
      {4, true, L"Windows services - local network", kBoth, 0, kLocal, L"", L"", kSvchost, L""},
      {7, false, kDownloadsRule, kOut, kTcp, L"", L"80, 443", L"", kSvchost, kInteractive},
      {7, true, kRevocationRule, kOut, kTcp, L"", L"80", L"", kLsass, L""},
      {9, false, L"Built-in Windows VPN - IKEv2 and IPsec", kOut, kUdp, L"", L"500, 4500", L"",
       kSvchost, kIkeService},
      {9, false, L"Built-in Windows VPN - L2TP", kOut, kUdp, L"", L"1701", L"", kSystem, L""},
      {9, false, L"Built-in Windows VPN - SSTP", kOut, kTcp, L"", L"443", L"", kSvchost,
       kSstpService},
  };
  std::vector<PresetRule> presets;
  presets.reserve(std::size(rows));
  for (const Row& row : rows) {
    presets.push_back({row.generation, row.default_enabled,
                       RuleEntry{row.name, false, true, row.direction, row.protocol, row.remote,
                                 row.remote_ports, row.local_ports, row.app, row.user}});
  }
  return presets;
}

Config DefaultConfig() {
  Config config;
  for (PresetRule& row : PresetRules()) {
    row.rule.enabled = row.default_enabled;
    config.rules.push_back(std::move(row.rule));
  }
  config.presets_version = kPresetsGeneration;
  config.blocklists = {kDropList};
  return config;
}

bool UpgradePresets(Config& config) {
  const std::int32_t seen = config.presets_version;
  if (seen >= kPresetsGeneration) return false;
  AddNewRows(config);
  NarrowDnsRule(config);
  NarrowSmbRule(config);
  if (seen < 6) KeepLocalNames(config);
  if (seen < 8) AddDropList(config);
  if (seen < 7) SwitchRules(config, {kDownloadsRule, kRevocationRule}, true);
  // The last generation withdrew what the seventh gave, also from who had switched it on.
  if (seen < 9) SwitchRules(config, {kDownloadsRule}, false);
  config.presets_version = kPresetsGeneration;
  return true;
}

}  // namespace kestrelon

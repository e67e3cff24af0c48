#include "filtering/build_filters.h"

#include <optional>
#include <utility>

#include "base/format.h"
#include "config/address_spec.h"
#include "filtering/app_id.h"
#include "filtering/filter_conditions.h"
#include "filtering/filter_keys.h"
#include "filtering/hosted_services.h"
#include "identity/paths.h"

namespace kestrelon {
namespace {

constexpr std::uint32_t kProtocolIcmp = 1;
constexpr std::uint32_t kProtocolIcmpV6 = 58;

bool WriteBlockAll(FilterWriter& writer) {
  FilterGroup outbound;
  outbound.name = L"Block all outbound";
  outbound.weight = kWeightBlockAll;
  outbound.inbound = false;
  FilterGroup inbound;
  inbound.name = L"Block all inbound";
  inbound.weight = kWeightBlockAll;
  inbound.outbound = false;
  return writer.Write(outbound, {}) && writer.Write(inbound, {});
}

// These change no verdict: they let a drop inside the shared svchost process be told of by the
// service that it hit.
bool WriteServiceBlocks(FilterWriter& writer) {
  platform::Bytes svchost;
  if (!AppIdFor(L"%SystemRoot%\\System32\\svchost.exe", svchost)) return true;
  for (const HostedService& service : HostedServices()) {
    platform::SecurityDescriptor user;
    if (!UserDescriptor(service.sid, user)) continue;
    FilterGroup group;
    group.name = L"Block service " + service.name;
    group.weight = kWeightServiceBlock;
    group.tag = service.name;
    group.inbound = false;
    if (!writer.Write(group, {AppIs(svchost), UserIs(std::move(user))})) return false;
  }
  return true;
}

bool WriteLoopback(FilterWriter& writer) {
  FilterGroup group;
  group.name = L"Loopback";
  group.allow = true;
  group.weight = kWeightLoopback;
  group.kind = FilterKind::kLoopback;
  return writer.Write(group, {IsLoopback()});
}

// A rule with its texts turned into what conditions hold.
struct ParsedRule {
  std::vector<AddressEntry> addresses;
  std::vector<PortRange> remote_ports;
  std::vector<PortRange> local_ports;
  std::optional<platform::Bytes> app_id;
  std::optional<platform::SecurityDescriptor> user;
};

// Everything but the user. False with the reason why the rule can't be used.
bool ParseRule(const RuleEntry& rule, ParsedRule& parsed, std::wstring& reason) {
  if (!ParseAddressSpec(rule.remote, parsed.addresses, reason) ||
      !ParsePortSpec(rule.remote_ports, parsed.remote_ports, reason) ||
      !ParsePortSpec(rule.local_ports, parsed.local_ports, reason)) {
    return false;
  }
  if (!rule.app.empty() && !AppIdFor(rule.app, parsed.app_id.emplace())) {
    reason = L"cannot resolve application " + rule.app;
    return false;
  }
  return true;
}

bool RuleHasFamily(const RuleEntry& rule, const ParsedRule& parsed, std::uint32_t family) {
  if (rule.protocol == (family == 4 ? kProtocolIcmpV6 : kProtocolIcmp)) return false;
  if (parsed.addresses.empty()) return true;
  for (const AddressEntry& address : parsed.addresses) {
    if (address.family == family) return true;
  }
  return false;
}

ConditionList RuleConditions(const RuleEntry& rule, const ParsedRule& parsed,
                             std::uint32_t family) {
  ConditionList conditions;
  conditions.reserve(parsed.addresses.size() + parsed.remote_ports.size() +
                     parsed.local_ports.size() + 3);
  if (rule.protocol != 0) {
    conditions.push_back(ProtocolIs(static_cast<std::uint8_t>(rule.protocol)));
  }
  for (const AddressEntry& address : parsed.addresses) {
    if (address.family == family) conditions.push_back(RemoteIs(address));
  }
  for (const PortRange& ports : parsed.remote_ports) {
    conditions.push_back(PortIs(platform::kFieldRemotePort, ports));
  }
  for (const PortRange& ports : parsed.local_ports) {
    conditions.push_back(PortIs(platform::kFieldLocalPort, ports));
  }
  if (parsed.app_id) conditions.push_back(AppIs(*parsed.app_id));
  if (parsed.user) conditions.push_back(UserIs(*parsed.user));
  return conditions;
}

FilterGroup RuleGroup(const RuleEntry& rule, const ParsedRule& parsed) {
  FilterGroup group;
  group.name = L"Rule: " + rule.name;
  group.allow = rule.allow;
  group.weight = rule.allow ? kWeightRuleAllow : kWeightRuleBlock;
  group.kind = FilterKind::kRule;
  group.tag = rule.name;
  group.outbound = rule.direction != kDirectionIn;
  group.inbound = rule.direction != kDirectionOut;
  group.ipv4 = RuleHasFamily(rule, parsed, 4);
  group.ipv6 = RuleHasFamily(rule, parsed, 6);
  return group;
}

bool WriteRule(FilterWriter& writer, const RuleEntry& rule, std::vector<std::wstring>& warnings) {
  ParsedRule parsed;
  std::wstring reason;
  if (!ParseRule(rule, parsed, reason)) {
    warnings.push_back(Format(L"Rule '%s' skipped: %s", rule.name, reason));
    return true;
  }
  // A user that the platform does not know leaves the rule without filters.
  if (!rule.user.empty() && !UserDescriptor(rule.user, parsed.user.emplace())) return true;
  const FilterGroup group = RuleGroup(rule, parsed);
  ConditionList ipv4;
  ConditionList ipv6;
  if (group.ipv4) ipv4 = RuleConditions(rule, parsed, 4);
  if (group.ipv6) ipv6 = RuleConditions(rule, parsed, 6);
  return writer.Write(group, ipv4, ipv6);
}

// What an entry is matched by; false with a warning when the platform does not take it.
bool EntryConditions(const PlanEntry& entry, ConditionList& conditions, std::wstring& warning) {
  if (entry.package_sid.empty()) {
    platform::Bytes app_id;
    if (!AppIdFor(entry.path, app_id)) {
      warning = L"Cannot resolve application path: " + entry.path;
      return false;
    }
    conditions.push_back(AppIs(std::move(app_id)));
  } else {
    platform::Sid package;
    if (platform::SidFromText(entry.package_sid, package) != platform::kSuccess) {
      warning = L"App package rule skipped (invalid package SID): " + entry.label;
      return false;
    }
    conditions.push_back(PackageIs(std::move(package)));
  }
  if (entry.service_sid.empty()) return true;
  platform::SecurityDescriptor user;
  if (!UserDescriptor(entry.service_sid, user)) {
    warning = L"Service rule skipped (invalid service SID): " + entry.label;
    return false;
  }
  conditions.push_back(UserIs(std::move(user)));
  return true;
}

FilterGroup EntryGroup(const PlanEntry& entry) {
  const std::wstring shown = entry.label.empty() ? FileNamePart(entry.path) : entry.label;
  FilterGroup group;
  group.allow = entry.allow;
  group.kind = FilterKind::kApplication;
  group.tag = entry.label.empty() ? entry.path : entry.label;
  group.inbound = entry.inbound || !entry.allow;
  if (entry.allow) {
    group.name = L"Allow " + shown;
    group.weight = kWeightAppAllow;
  } else if (entry.integrity_block) {
    group.name = L"Integrity block " + shown;
    group.weight = kWeightIntegrityBlock;
  } else {
    group.name = L"Block " + shown;
    group.weight = kWeightAppBlock;
  }
  return group;
}

bool WriteEntry(FilterWriter& writer, const PlanEntry& entry, std::vector<std::wstring>& warnings) {
  ConditionList conditions;
  std::wstring warning;
  if (!EntryConditions(entry, conditions, warning)) {
    warnings.push_back(std::move(warning));
    return true;
  }
  return writer.Write(EntryGroup(entry), std::move(conditions));
}

}  // namespace

bool BuildFilters(const Config& config, const std::vector<PlanEntry>& entries,
                  std::vector<std::wstring>& warnings, const FilterSink& sink) {
  FilterWriter writer(sink);
  if (!WriteBlockAll(writer) || !WriteServiceBlocks(writer)) return false;
  if (config.allow_loopback && !WriteLoopback(writer)) return false;
  for (const RuleEntry& rule : config.rules) {
    if (rule.enabled && !WriteRule(writer, rule, warnings)) return false;
  }
  for (const PlanEntry& entry : entries) {
    if (!WriteEntry(writer, entry, warnings)) return false;
  }
  return true;
}

}  // namespace kestrelon

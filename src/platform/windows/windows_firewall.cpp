#include "platform/windows_firewall.h"

#include "platform/windows/com.h"

// Leans on the headers of COM without including them.
#include <netfw.h>

#include <memory>
#include <utility>

namespace kestrelon::platform {
namespace {

// The objects end before what they live in.
struct Policy {
  ComApartment apartment;
  ComPointer<INetFwPolicy2> policy;
  ComPointer<INetFwRules> rules;
};

INetFwRules* Rules(const FirewallPolicy& policy) {
  return reinterpret_cast<Policy*>(policy.handle())->rules.get();
}

INetFwRule* Native(const FirewallRule& rule) {
  return reinterpret_cast<INetFwRule*>(rule.handle());
}

HRESULT PutText(INetFwRule* rule, HRESULT (STDMETHODCALLTYPE INetFwRule::*put)(BSTR),
                const std::wstring& value) {
  const ComText text = ComTextFrom(value);
  return text ? (rule->*put)(text.get()) : E_OUTOFMEMORY;
}

// One value after the other until one is refused.
HRESULT PutValues(INetFwRule* rule, const FirewallRuleValues& values) {
  HRESULT result = PutText(rule, &INetFwRule::put_Name, values.name);
  const auto then = [&result](auto put) {
    if (SUCCEEDED(result)) result = put();
  };
  const auto then_text = [&](auto put, const std::wstring& value) {
    then([&] { return PutText(rule, put, value); });
  };
  then_text(&INetFwRule::put_Description, values.description);
  then_text(&INetFwRule::put_ApplicationName, values.application);
  then([&] { return rule->put_Protocol(values.protocol); });
  then_text(&INetFwRule::put_LocalPorts, values.local_ports);
  then_text(&INetFwRule::put_RemoteAddresses, values.remote_addresses);
  then([&] { return rule->put_Direction(static_cast<NET_FW_RULE_DIRECTION>(values.direction)); });
  then([&] { return rule->put_Action(static_cast<NET_FW_ACTION>(values.action)); });
  then_text(&INetFwRule::put_Grouping, values.grouping);
  then([&] { return rule->put_Profiles(values.profiles); });
  then([&] { return rule->put_Enabled(values.enabled ? VARIANT_TRUE : VARIANT_FALSE); });
  return result;
}

HRESULT OpenEnumerator(INetFwRules* rules, ComPointer<IEnumVARIANT>& items) {
  ComPointer<IUnknown> unknown;
  const HRESULT result = rules->get__NewEnum(unknown.Receive());
  if (FAILED(result)) return result;
  return unknown ? QueryFor(unknown.get(), items) : E_POINTER;
}

// False for what is no rule.
bool ReadItem(const VARIANT& item, ListedFirewallRule& listed) {
  if (item.vt != VT_DISPATCH || item.pdispVal == nullptr) return false;
  ComPointer<INetFwRule> rule;
  if (FAILED(QueryFor(item.pdispVal, rule))) return false;
  ComText grouping;
  ComText name;
  if (SUCCEEDED(rule.get()->get_Grouping(grouping.Receive()))) listed.grouping = WideFrom(grouping);
  if (SUCCEEDED(rule.get()->get_Name(name.Receive()))) listed.name = WideFrom(name);
  return true;
}

}  // namespace

void CloseFirewallPolicy(std::uintptr_t policy) {
  delete reinterpret_cast<Policy*>(policy);
}

Code OpenFirewallPolicy(FirewallPolicy& policy) {
  auto opened = std::make_unique<Policy>();
  HRESULT result = CreateObject<NetFwPolicy2>(opened->policy);
  if (SUCCEEDED(result)) result = opened->policy.get()->get_Rules(opened->rules.Receive());
  if (FAILED(result)) return CodeOf(result);
  policy.Adopt(reinterpret_cast<std::uintptr_t>(opened.release()));
  return kSuccess;
}

void CloseFirewallRule(std::uintptr_t rule) {
  ReleaseInterface(reinterpret_cast<INetFwRule*>(rule));
}

Code MakeFirewallRule(FirewallRule& rule) {
  ComPointer<INetFwRule> made;
  const HRESULT result = CreateObject<NetFwRule>(made);
  if (FAILED(result)) return CodeOf(result);
  rule.Adopt(reinterpret_cast<std::uintptr_t>(made.Release()));
  return kSuccess;
}

Code AddFirewallRule(const FirewallPolicy& policy, const FirewallRule& rule,
                     const FirewallRuleValues& values) {
  HRESULT result = PutValues(Native(rule), values);
  if (SUCCEEDED(result)) result = Rules(policy)->Add(Native(rule));
  return CodeOf(result);
}

Code RemoveFirewallRules(const FirewallPolicy& policy, const std::wstring& name) {
  const ComText text = ComTextFrom(name);
  return CodeOf(text ? Rules(policy)->Remove(text.get()) : E_OUTOFMEMORY);
}

Code ListFirewallRules(const FirewallPolicy& policy, std::vector<ListedFirewallRule>& rules) {
  ComPointer<IEnumVARIANT> items;
  const HRESULT result = OpenEnumerator(Rules(policy), items);
  if (FAILED(result)) return CodeOf(result);
  rules.clear();
  for (;;) {
    ComValue item;
    ULONG fetched = 0;
    if (items.get()->Next(1, item.get(), &fetched) != S_OK || fetched == 0) return kSuccess;
    ListedFirewallRule listed;
    if (ReadItem(*item, listed)) rules.push_back(std::move(listed));
  }
}

}  // namespace kestrelon::platform

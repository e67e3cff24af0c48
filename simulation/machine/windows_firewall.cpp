#include "simulation/machine/windows_firewall.h"

#include <algorithm>
#include <string_view>

namespace simulation {

using kestrelon::platform::kInvalidHandle;
using kestrelon::platform::kSuccess;

namespace {

constexpr Code kInvalidArgument = 0x80070057;  // E_INVALIDARG
constexpr Code kNoMoreEndpoints = 0x800706D9;  // EPT_S_NOT_REGISTERED
constexpr std::int32_t kTcp = 6;
constexpr std::int32_t kUdp = 17;

bool IsPort(std::wstring_view text) {
  std::uint32_t port = 0;
  if (text.empty() || text.size() > 5) return false;
  for (const wchar_t c : text) {
    if (c < L'0' || c > L'9') return false;
    port = port * 10 + static_cast<std::uint32_t>(c - L'0');
  }
  return port <= 0xFFFF;
}

// What a rule refuses when it is set. Lists and ranges of ports are more than anybody here sets.
bool AreValid(const platform::FirewallRuleValues& values) {
  // The bar separates fields where the platform keeps its rules.
  if (values.name.empty() || values.name.find(L'|') != std::wstring::npos) return false;
  const bool has_ports = values.protocol == kTcp || values.protocol == kUdp;
  return values.local_ports.empty() || (has_ports && IsPort(values.local_ports));
}

}  // namespace

std::vector<platform::FirewallRuleValues> WindowsFirewall::Rules() const {
  const std::lock_guard lock(mutex_);
  return rules_;
}

void WindowsFirewall::Add(const platform::FirewallRuleValues& values) {
  const std::lock_guard lock(mutex_);
  rules_.push_back(values);
}

void WindowsFirewall::SetAvailable(bool available) {
  const std::lock_guard lock(mutex_);
  available_ = available;
}

std::size_t WindowsFirewall::open_handles() const {
  const std::lock_guard lock(mutex_);
  return handles_.size();
}

void WindowsFirewall::DropHandles() {
  const std::lock_guard lock(mutex_);
  handles_.clear();
}

std::uintptr_t WindowsFirewall::Open() {
  handles_.insert(++last_handle_);
  return last_handle_;
}

Code WindowsFirewall::Reach(std::uintptr_t policy) const {
  if (!handles_.contains(policy)) return kInvalidHandle;
  return available_ ? kSuccess : kNoMoreEndpoints;
}

Code WindowsFirewall::OpenPolicy(std::uintptr_t& policy) {
  const std::lock_guard lock(mutex_);
  if (!available_) return kNoMoreEndpoints;
  policy = Open();
  return kSuccess;
}

std::uintptr_t WindowsFirewall::MakeRule() {
  const std::lock_guard lock(mutex_);
  return Open();
}

void WindowsFirewall::Close(std::uintptr_t handle) {
  const std::lock_guard lock(mutex_);
  handles_.erase(handle);
}

Code WindowsFirewall::AddRule(std::uintptr_t policy, std::uintptr_t rule,
                              const platform::FirewallRuleValues& values) {
  const std::lock_guard lock(mutex_);
  if (!handles_.contains(rule)) return kInvalidHandle;
  if (!AreValid(values)) return kInvalidArgument;
  if (const Code code = Reach(policy)) return code;
  rules_.push_back(values);
  return kSuccess;
}

Code WindowsFirewall::RemoveRules(std::uintptr_t policy, const std::wstring& name) {
  const std::lock_guard lock(mutex_);
  if (const Code code = Reach(policy)) return code;
  std::erase_if(rules_,
                [&](const platform::FirewallRuleValues& rule) { return rule.name == name; });
  return kSuccess;
}

Code WindowsFirewall::ListRules(std::uintptr_t policy,
                                std::vector<platform::ListedFirewallRule>& rules) const {
  const std::lock_guard lock(mutex_);
  if (const Code code = Reach(policy)) return code;
  rules.clear();
  for (const platform::FirewallRuleValues& rule : rules_) {
    rules.push_back({rule.name, rule.grouping});
  }
  return kSuccess;
}

}  // namespace simulation

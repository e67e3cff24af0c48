// The operating system's own firewall: the rules that software has put into it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/windows_firewall.h"

namespace simulation {

using kestrelon::platform::Code;
namespace platform = kestrelon::platform;

// Any thread. The rules outlast a restart.
class WindowsFirewall {
 public:
  // The rules in it now, oldest first.
  std::vector<platform::FirewallRuleValues> Rules() const;

  // A rule as other software adds it.
  void Add(const platform::FirewallRuleValues& values);

  // Whether its service answers.
  void SetAvailable(bool available);

  // Policies and rules that the product holds.
  std::size_t open_handles() const;

  // All handles are dead.
  void DropHandles();

  // The calls of the seam, as platform/windows_firewall.h tells. A policy and a rule are a handle
  // each.
  Code OpenPolicy(std::uintptr_t& policy);
  std::uintptr_t MakeRule();
  void Close(std::uintptr_t handle);
  Code AddRule(std::uintptr_t policy, std::uintptr_t rule,
               const platform::FirewallRuleValues& values);
  Code RemoveRules(std::uintptr_t policy, const std::wstring& name);
  Code ListRules(std::uintptr_t policy, std::vector<platform::ListedFirewallRule>& rules) const;

 private:
  std::uintptr_t Open();
  Code Reach(std::uintptr_t policy) const;

  mutable std::mutex mutex_;  // guards all below
  std::vector<platform::FirewallRuleValues> rules_;
  std::set<std::uintptr_t> handles_;
  std::uintptr_t last_handle_ = 0;
  bool available_ = true;
};

}  // namespace simulation

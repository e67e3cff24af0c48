#include "modules/module_rules.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "base/format.h"
#include "identity/file_identity.h"
#include "modules/known_modules.h"
#include "modules/verify_module.h"

namespace kestrelon {
namespace {

// All that the scope "lan" means: private and link-local networks, multicast, and the broadcast
// within one network.
constexpr const wchar_t* kLanNetworks =
    L"10.0.0.0/8, 172.16.0.0/12, 192.168.0.0/16, 169.254.0.0/16, 224.0.0.0/4, 255.255.255.255, "
    L"fe80::/10, fc00::/7, ff00::/8";

struct OneWay {
  std::uint32_t direction;
  const wchar_t* suffix;
};

constexpr OneWay kOneWays[] = {{kDirectionOut, L" (out)"}, {kDirectionIn, L" (in)"}};

}  // namespace

std::vector<RuleEntry> ModuleRules(const ModuleManifest& manifest, const std::wstring& path) {
  std::vector<RuleEntry> rules;
  for (const ModuleNetworkEntry& entry : manifest.network) {
    for (const OneWay& way : kOneWays) {
      if (entry.direction != way.direction && entry.direction != kDirectionBoth) continue;
      RuleEntry rule;
      rule.name = L"Module: " + manifest.name + way.suffix;
      rule.direction = way.direction;
      rule.protocol = entry.protocol;
      rule.remote = kLanNetworks;
      rule.remote_ports = Format(L"%u", entry.port);
      rule.local_ports = rule.remote_ports;
      rule.app = path;
      rules.push_back(std::move(rule));
    }
  }
  return rules;
}

void CompileModuleRules(const Config& config, std::vector<std::wstring>& warnings,
                        std::wstring& fingerprint, std::vector<RuleEntry>& rules) {
  for (const ModuleEntry& entry : config.modules) {
    const KnownModule* const module = FindKnownModule(entry.id);
    if (!entry.enabled || module == nullptr) continue;
    // Before the file is verified: if it changes in between, the fingerprint is of the old one, and
    // the next look at it asks for a new compile.
    fingerprint += L"mod:" + entry.id + L"|" + IdentityFor(ModulePath(*module)).sha256 + L";";
    const ModuleStatus status = VerifyModule(entry.id);
    if (!status.problem.empty()) {
      warnings.push_back(Format(L"Module %s is off: %s", entry.id, status.problem));
    } else if (entry.grant != status.grant) {
      warnings.push_back(
          Format(L"Module %s asks for other permissions than you approved - it stays off until you "
                 L"approve them",
                 status.manifest.name));
    } else if (ModuleIsActive(config, status)) {
      std::ranges::move(ModuleRules(status.manifest, status.path), std::back_inserter(rules));
    }
  }
}

}  // namespace kestrelon

#include "modules/module_rules.h"

#include <gtest/gtest.h>

#include "simulation/machine/machine.h"
#include "tests/modules/module_world.h"

namespace kestrelon::test {
namespace {

constexpr const wchar_t* kLan =
    L"10.0.0.0/8, 172.16.0.0/12, 192.168.0.0/16, 169.254.0.0/16, 224.0.0.0/4, 255.255.255.255, "
    L"fe80::/10, fc00::/7, ff00::/8";

RuleEntry Rule(bool inbound, std::uint32_t protocol, const wchar_t* port) {
  RuleEntry rule;
  rule.name = inbound ? L"Module: M (in)" : L"Module: M (out)";
  rule.direction = inbound ? kDirectionIn : kDirectionOut;
  rule.protocol = protocol;
  rule.remote = kLan;
  rule.remote_ports = rule.local_ports = port;
  rule.app = L"C:\\m.exe";
  return rule;
}

TEST(ModuleRules, OneRuleForEachEntryAndDirectionInTheOrderOfTheFile) {
  ModuleManifest manifest;
  manifest.name = L"M";
  manifest.network = {{kDirectionBoth, 17, 53535, L"lan", L"calls"},
                      {kDirectionIn, 6, 1, L"lan", L"files"},
                      {kDirectionBoth, 6, 65535, L"lan", L"more"}};
  EXPECT_EQ(ModuleRules(manifest, L"C:\\m.exe"),
            (std::vector{Rule(false, 17, L"53535"), Rule(true, 17, L"53535"), Rule(true, 6, L"1"),
                         Rule(false, 6, L"65535"), Rule(true, 6, L"65535")}));
}

TEST(CompileModuleRules, OnlyWhatIsOnKnownAndApprovedHasRules) {
  ModuleEntry off = ApprovedModule();
  off.enabled = false;
  ModuleEntry other_case = ApprovedModule();
  other_case.id = L"LAN-Messages";
  const std::wstring pinned =
      L"mod:lan-messages|4242fd806f41bd4910eb79e9b8c9b9995a4e47330c8204f523380dcf77dd9105;";
  const std::wstring other =
      L"mod:lan-messages|ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad;";
  const std::wstring differs =
      L"Module LAN Messages asks for other permissions than you approved - it stays off until you "
      L"approve them";
  const struct {
    const char* content;  // of the file
    ModuleEntry entry;
    std::wstring fingerprint;
    std::vector<std::wstring> warnings = {};
    std::size_t rules = 0;
  } cases[] = {
      {kModuleContent, ApprovedModule(), pinned, {}, 1},
      {kModuleContent, off, L""},
      {kModuleContent, other_case, L""},
      {kModuleContent, ApprovedModule(L"net:in/17/53535/lan"), pinned, {differs}},
      {kModuleContent, ApprovedModule(L"Perm:status.read|net:in/17/53535/lan"), pinned, {differs}},
      {"abc",
       ApprovedModule(),
       other,
       {L"Module lan-messages is off: the module file is not the one shipped with this Kestrelon "
        L"version"}},
  };
  InstallModule();
  for (const auto& c : cases) {
    simulation::TheMachine().files.Write(kModuleFile, c.content);
    Config config;
    config.modules = {c.entry};
    std::vector<std::wstring> warnings = {L"before"};
    std::wstring fingerprint = L"before;";
    std::vector<RuleEntry> rules(1);
    CompileModuleRules(config, warnings, fingerprint, rules);
    EXPECT_EQ(fingerprint, L"before;" + c.fingerprint);
    EXPECT_EQ(std::vector(warnings.begin() + 1, warnings.end()), c.warnings);
    EXPECT_EQ(rules.size(), 1 + c.rules);
  }
}

}  // namespace
}  // namespace kestrelon::test

#include "modules/module_rules.h"

#include <gtest/gtest.h>

#include "simulation/machine/machine.h"
#include "tests/modules/module_world.h"

namespace kestrelon::test {
namespace {

// What else a rule says is shown by verdicts.
TEST(ModuleRules, OneForEachEntryAndDirectionInTheOrderOfTheFile) {
  ModuleManifest manifest;
  manifest.name = L"M";
  manifest.network = {{kDirectionBoth, 17, 53535, L"lan", L"calls"},
                      {kDirectionIn, 6, 1, L"lan", L"files"},
                      {kDirectionBoth, 6, 65535, L"lan", L"more"}};
  std::wstring rules;
  for (const RuleEntry& rule : ModuleRules(manifest, L"C:\\m.exe")) {
    rules += rule.name + L" " + rule.local_ports + L"\n";
  }
  EXPECT_EQ(rules,
            L"Module: M (out) 53535\nModule: M (in) 53535\nModule: M (in) 1\n"
            L"Module: M (out) 65535\nModule: M (in) 65535\n");
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

#include "modules/module_list.h"

#include <gtest/gtest.h>

#include "modules/module_processes.h"
#include "simulation/machine/machine.h"
#include "tests/modules/module_world.h"

namespace kestrelon::test {
namespace {

using Entries = std::vector<ModuleEntry>;

Config ConfigWith(const Entries& entries) {
  Config config;
  config.modules = entries;
  return config;
}

ModuleEntry Entry(const wchar_t* id, bool enabled) {
  ModuleEntry entry = ApprovedModule();
  entry.id = id;
  entry.enabled = enabled;
  entry.version = L"0.9";
  return entry;
}

const ModuleEntry kOn = Entry(kModuleId, true);
const ModuleEntry kOff = Entry(kModuleId, false);
const ModuleEntry kOtherCaseOn = Entry(L"LAN-Messages", true);
const ModuleEntry kOtherCaseOff = Entry(L"LAN-Messages", false);
const ModuleEntry kOther = Entry(L"other", true);

TEST(ModuleList, TellsAllOfAModuleThatIsThere) {
  for (const auto& [id, session] : {std::pair(kModuleId, 1U), {L"other", 1U}, {kModuleId, 2U}}) {
    const GuardLock lock(ModuleGuard);
    ModuleProcesses.push_back({id, session, session * 4, {}, {}});
  }
  InstallModule();
  const std::string there = ModuleStatusList(ConfigWith({kOtherCaseOn})).Dump(false);
  EXPECT_TRUE(there.ends_with(R"("enabled":true,"approved_version":"0.9","needs_approval":false,)"
                              R"("active":true,"running":2}])"))
      << there;
  Config config = ConfigWith({ApprovedModule(L"net:in/17/53535/lan")});
  const Json waiting = ModuleStatusList(config).At(0);
  EXPECT_TRUE(waiting.Get("needs_approval").boolean());
  EXPECT_FALSE(waiting.Get("active").boolean());
  config.modules[0].enabled = false;
  EXPECT_FALSE(ModuleStatusList(config).At(0).Get("needs_approval").boolean());
  simulation::TheMachine().files.Remove(kModuleFile);
  EXPECT_EQ(ModuleStatusList(config).Dump(false),
            R"([{"id":"lan-messages",)"
            R"("path":"C:\\Program Files\\Kestrelon\\modules\\lan-messages\\KSMessages.exe",)"
            R"("installed":false,"verified":false,"problem":"the module file is missing",)"
            R"("signer":"","enabled":false,"approved_version":"","needs_approval":false,)"
            R"("active":false,"running":2}])");
}

TEST(SetModule, ApprovesWhatWasShownAndTurnsOffWhateverIsThere) {
  const ModuleChange on = {kModuleId, true, kModuleGrant, true};  // no removal when turned on
  const ModuleChange off = {kModuleId, false, L"", false};
  const ModuleChange forget = {kModuleId, false, L"", true};
  const ModuleChange unseen = {kModuleId, true, L"perm:status.read", false};
  const ModuleChange unknown = {L"LAN-Messages", false, L"", true};
  const wchar_t* const differs =
      L"The module's permissions differ from what was shown - please look at them again.";
  ModuleEntry approved = kOn;
  approved.version = L"1.0";
  approved.approved = simulation::TheMachine().clock.SystemTime();
  ModuleEntry approved_other_case = approved;
  approved_other_case.id = kOtherCaseOn.id;
  const struct {
    bool installed;
    ModuleChange change;
    Entries before, after;
    const wchar_t* error = L"";
  } cases[] = {
      {true, on, {kOther}, {kOther, approved}},
      {true, on, {ApprovedModule(L"old"), kOther}, {approved, kOther}},
      {true, on, {kOff, kOther, kOtherCaseOff}, {kOff, kOther, approved_other_case}},
      {true, unseen, {kOff}, {kOff}, differs},
      {false, on, {kOff}, {kOff}, L"The module cannot be turned on: the module file is missing"},
      {true, unknown, {kOtherCaseOn}, {kOtherCaseOn}, L"unknown module: LAN-Messages"},
      {false, off, {kOther}, {kOther}},
      {false, forget, {kOther}, {kOther}},
      {false, off, {kOther, kOtherCaseOn}, {kOther, kOtherCaseOff}},
      {false, forget, {kOther, kOtherCaseOn}, {kOther}},
      // Of two for one module the last goes off, and the first is forgotten.
      {false, forget, {kOtherCaseOn, kOn}, {kOff}},
  };
  for (const auto& c : cases) {
    InstallModule();
    if (!c.installed) simulation::TheMachine().files.Remove(kModuleFile);
    Config config = ConfigWith(c.before);
    std::wstring error;
    EXPECT_EQ(SetModule(config, c.change, error), *c.error == 0) << &c - cases;
    EXPECT_EQ(error, c.error) << &c - cases;
    EXPECT_EQ(config, ConfigWith(c.after)) << &c - cases;
  }
}

}  // namespace
}  // namespace kestrelon::test

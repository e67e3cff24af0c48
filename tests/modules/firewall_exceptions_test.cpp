#include "modules/firewall_exceptions.h"

#include <gtest/gtest.h>

#include "simulation/machine/machine.h"
#include "tests/modules/module_world.h"

namespace kestrelon {
namespace {

using platform::FirewallRuleValues;
using Rules = std::vector<FirewallRuleValues>;

constexpr const wchar_t* kName = L"Kestrelon - LAN Messages";

ModuleNetworkEntry Entry(std::uint32_t direction, std::uint32_t protocol, std::uint32_t port) {
  return {.direction = direction, .protocol = protocol, .port = port, .scope = L"lan", .why = L"x"};
}

ModuleStatus StatusWith(std::vector<ModuleNetworkEntry> network) {
  ModuleStatus status;
  status.id = test::kModuleId;
  status.path = test::kModuleFile;
  status.manifest_valid = true;
  status.manifest.name = L"LAN Messages";
  status.manifest.network = std::move(network);
  return status;
}

FirewallRuleValues Exception(std::int32_t protocol, const std::wstring& port) {
  return {
      .name = kName,
      .description = L"Added by Kestrelon while this module is turned on (Kestrelon > Modules).",
      .application = test::kModuleFile,
      .protocol = protocol,
      .local_ports = port,
      .remote_addresses = L"LocalSubnet",
      .direction = 1,
      .action = 1,
      .grouping = L"Kestrelon",
      .profiles = 0x7FFFFFFF,
      .enabled = true,
  };
}

// A firewall with a rule of other software's.
class FirewallExceptions : public testing::Test {
 protected:
  FirewallExceptions() {
    other_.name = L"Game";
    other_.grouping = L"Games";
    firewall_.Add(other_);
  }
  void TearDown() override { EXPECT_EQ(firewall_.open_handles(), 0u); }

  // The rules beside that of other software, which nothing may change.
  Rules Ours() const {
    Rules rules = firewall_.Rules();
    EXPECT_EQ(rules.at(0), other_);
    rules.erase(rules.begin());
    return rules;
  }

  FirewallRuleValues other_;
  const ModuleStatus two_ports_ =
      StatusWith({Entry(kDirectionIn, 17, 53535), Entry(kDirectionIn, 6, 80)});
  const Rules two_exceptions_ = {Exception(17, L"53535"), Exception(6, L"80")};
  simulation::Faults& faults_ = simulation::TheMachine().faults;
  simulation::WindowsFirewall& firewall_ = simulation::TheMachine().windows_firewall;
};

TEST_F(FirewallExceptions, AreOneForEachPortThatIsOpenInwardsInPlaceOfAnyBefore) {
  ASSERT_TRUE(SyncFirewallException(two_ports_, true));
  EXPECT_EQ(Ours(), two_exceptions_);
  EXPECT_TRUE(SyncFirewallException(
      StatusWith({Entry(kDirectionBoth, 6, 65535), Entry(kDirectionOut, 6, 443)}), true));
  EXPECT_EQ(Ours(), (Rules{Exception(6, L"65535")}));
  EXPECT_TRUE(SyncFirewallException(StatusWith({Entry(kDirectionOut, 6, 443)}), true));
  EXPECT_EQ(Ours(), Rules());
}

TEST_F(FirewallExceptions, ThatFailAreToldAndTheOthersAdded) {
  const struct {
    const char* call;
    std::uint64_t which;
    bool result;
    Rules left;
  } cases[] = {
      {"OpenFirewallPolicy", 1, false, {}},
      {"RemoveFirewallRules", 1, true, two_exceptions_},
      {"MakeFirewallRule", 1, false, {}},
      {"MakeFirewallRule", 2, false, {two_exceptions_[0]}},
      {"AddFirewallRule", 1, false, {two_exceptions_[1]}},
      {"AddFirewallRule", 2, false, {two_exceptions_[0]}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.call) + " " + std::to_string(c.which));
    ASSERT_TRUE(SyncFirewallException(two_ports_, false));
    ASSERT_EQ(Ours(), Rules());
    faults_.FailNthOf(c.call, c.which, platform::kAccessDenied);
    EXPECT_EQ(SyncFirewallException(two_ports_, true), c.result);
    EXPECT_TRUE(faults_.fired());
    EXPECT_EQ(Ours(), c.left);
  }
}

TEST_F(FirewallExceptions, OfOurGroupAloneAreRemovedEachCounted) {
  ASSERT_TRUE(SyncFirewallException(two_ports_, true));
  FirewallRuleValues gone_module = Exception(6, L"81");
  gone_module.name = L"Kestrelon - Older";
  firewall_.Add(gone_module);
  Rules alike;
  for (const wchar_t* group : {L"kestrelon", L"Kestrelon ", L"Kestrelon2", L""}) {
    FirewallRuleValues rule = gone_module;
    rule.name = L"Kestrelon - Alike";
    rule.grouping = group;
    firewall_.Add(rule);
    alike.push_back(rule);
  }
  faults_.FailOnce("ListFirewallRules", platform::kAccessDenied);
  EXPECT_EQ(RemoveFirewallExceptions(), 0);
  faults_.FailNthOf("RemoveFirewallRules", 3, platform::kAccessDenied);
  EXPECT_EQ(RemoveFirewallExceptions(), 2) << "two of one name";
  EXPECT_EQ(RemoveFirewallExceptions(), 1);
  EXPECT_EQ(Ours(), alike);
}

TEST_F(FirewallExceptions, AreForgottenWhenTheFirewallIsAwayToo) {
  NoteFirewallException(L"one", true);
  firewall_.SetAvailable(false);
  EXPECT_FALSE(SyncFirewallException(two_ports_, false));
  EXPECT_EQ(RemoveFirewallExceptions(), 0);
  EXPECT_FALSE(FirewallExceptionApplied(L"one"));
}

}  // namespace
}  // namespace kestrelon

// What an approved module may reach, and what becomes of it when its user or its file says
// otherwise.
#include <algorithm>

#include "base/text.h"
#include "core/core_loop.h"
#include "core/core_state.h"
#include "tests/scenario/client.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

constexpr const char* kManifest = R"({
  "id": "lan-messages", "name": "M", "version": "2", "publisher": "TARGON HELVERIK Ltd. Co.",
  "network": [{"dir": "both", "protocol": "udp", "port": 53535, "scope": "lan", "why": "x"}]})";
constexpr const wchar_t* kGrant = L"net:both/17/53535/lan";

// A datagram between the module and its like on another host.
Attempt Message(bool inbound, const std::wstring& remote) {
  Attempt attempt = Udp(Out(kModuleFile, remote, 53535));
  attempt.inbound = inbound;
  attempt.local_port = 53535;
  return attempt;
}

class Modules : public Scenario {
 protected:
  Modules() {
    world.InstallModule(kManifest, kGrant);
    world.machine().sessions.SignIn(1);
    config.modules = {ApprovedModule(kGrant)};
  }

  void ExpectPasses(const Attempt& attempt, bool passes) {
    EXPECT_EQ(world.Passes(attempt), passes) << Utf8FromWide(world.Explain(attempt));
  }

  // Whether it runs, once, and gets through both ways; and that it does neither without the other.
  bool IsOn() {
    const std::size_t running = Running().size();
    ExpectPasses(Message(false, L"10.0.0.1"), running == 1);
    ExpectPasses(Message(true, L"10.0.0.1"), running == 1);
    return running != 0;
  }

  bool HasFilters() {
    return std::ranges::any_of(world.machine().engine.Filters(), [](const auto& filter) {
      return filter->name.find(L"Module: M ") != std::wstring::npos;
    });
  }

  std::vector<std::uint32_t> Running() { return world.machine().processes.Running(kModuleFile, 1); }

  std::string Turn(bool on, const std::wstring& grant, const char* answer = "ok") {
    Json request;
    request["cmd"] = "set_module";
    request["id"] = kModuleId;
    request["enabled"] = on;
    request["remove"] = !on;
    request["grant"] = grant;
    return Client().Ask(request).Get(answer).Dump(false);
  }

  Config config = ConfigOf({});
};

TEST_F(Modules, ReachTheirPortInTheOwnNetworksAndNothingElse) {
  ASSERT_TRUE(world.StartWith(config));
  for (const bool inbound : {false, true}) {
    for (const wchar_t* remote :
         {L"10.255.255.255", L"172.31.0.1", L"192.168.1.7", L"169.254.1.1", L"224.0.0.251",
          L"239.255.255.250", L"255.255.255.255", L"fe80::1", L"fd00::1", L"ff02::1"}) {
      ExpectPasses(Message(inbound, remote), true);
    }
    for (const wchar_t* remote : {L"203.0.113.5", L"172.32.0.1", L"192.169.0.1", L"240.0.0.1",
                                  L"255.255.255.254", L"2001:db8::1", L"fec0::1"}) {
      ExpectPasses(Message(inbound, remote), false);
    }
    std::vector<Attempt> others(5, Message(inbound, L"192.168.1.7"));
    others[0].protocol = 6;
    others[1].remote_port = 53534;
    others[2].local_port = 53536;
    others[3].program = kTool;
    others[4].program = L"C:\\Tools\\KSMessages.exe";
    for (const Attempt& other : others) ExpectPasses(other, false);
  }
  EXPECT_TRUE(HasFilters());
  config.enabled = false;
  EXPECT_TRUE(world.Set(config).Get("ok").boolean());
  EXPECT_FALSE(HasFilters());
}

TEST_F(Modules, AreTurnedOnAsTheyWereShownAndOffByTheirUserAlone) {
  ASSERT_TRUE(world.StartWith(ConfigOf({})));
  EXPECT_EQ(Turn(true, L"net:in/17/53535/lan", "error"),
            "\"The module's permissions differ from what was shown - please look at them again.\"");
  EXPECT_FALSE(IsOn());
  EXPECT_EQ(Turn(true, kGrant), "true");
  EXPECT_TRUE(IsOn());
  EXPECT_TRUE(world.Logged(L"Module lan-messages turned ON\r\n"));

  Json request;
  request["cmd"] = "set_config";
  request["config"] = Json::Object();
  EXPECT_TRUE(Client().Ask(request).Get("ok").boolean());
  LoopPass();
  EXPECT_TRUE(IsOn()) << "no other command turns it off";
  const Json module = Client().Command("get_modules").Get("modules").At(0);
  EXPECT_EQ(module.Get("approved_version").text(), "2");
  EXPECT_EQ(module.Get("running").integer(), 1);

  EXPECT_EQ(Turn(false, L""), "true");
  EXPECT_FALSE(IsOn());
  EXPECT_TRUE(world.Logged(L"Module lan-messages turned OFF\r\n"));
  EXPECT_TRUE(world.ConfigOnDisk().modules.empty());
}

TEST_F(Modules, AreShutAndStoppedWhenTheirFileIsAnother) {
  ASSERT_TRUE(world.StartWith(config));
  EXPECT_TRUE(IsOn());
  world.ReplaceModule();
  LoopPass();
  EXPECT_FALSE(IsOn());
  EXPECT_EQ(Client().Command("status").Get("warnings").At(0).text(),
            "Module lan-messages is off: the module file is not the one shipped with this "
            "Kestrelon version");
  world.InstallModule(kManifest, kGrant);
  LoopPass();
  EXPECT_TRUE(IsOn());
}

TEST_F(Modules, RunOnWithoutTheServiceAndStayClosedUntilTheNextSignIn) {
  ASSERT_TRUE(world.StartWith(config));
  const std::vector<std::uint32_t> before = Running();
  world.Stop();
  EXPECT_TRUE(IsOn());
  ASSERT_TRUE(world.Start());
  EXPECT_EQ(Running(), before);
  EXPECT_TRUE(IsOn());

  world.machine().processes.End(before.at(0), 0x4B530000);
  LoopPass();
  LoopPass();
  EXPECT_TRUE(Running().empty());
  ExpectPasses(Message(true, L"10.0.0.1"), true);  // it may, but nobody is there
  world.machine().sessions.SignOut(1);
  LoopPass();
  world.machine().sessions.SignIn(1);
  LoopPass();
  EXPECT_TRUE(IsOn());
}

}  // namespace
}  // namespace kestrelon::test

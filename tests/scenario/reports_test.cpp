// What the engine drops and allows, from the packet to the client.
#include <thread>

#include "base/text.h"
#include "core/core_loop.h"
#include "core/core_state.h"
#include "platform/net_events.h"
#include "tests/scenario/client.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {
namespace {

constexpr const wchar_t* kActivityLog = L"C:\\ProgramData\\Kestrelon\\activity.log";

class Reports : public Scenario {
 protected:
  std::string ActivityLog() { return world.machine().files.Read(kActivityLog).value_or(""); }

  std::uint32_t Keywords() {
    std::uint32_t value = 0;
    simulation::SessionId session = 0;
    simulation::Caller caller;
    caller.local_system = true;
    auto& engine = world.machine().engine;
    EXPECT_EQ(engine.OpenSession({}, caller, session), platform::kSuccess);
    EXPECT_EQ(engine.GetOption(session, platform::kNetEventKeywords, value), platform::kSuccess);
    engine.CloseSession(session);
    return value;
  }
};

TEST_F(Reports, ABlockedConnectionIsAnEventALineAndARecord) {
  Config config = ConfigOf({Allowed(kBrowser), Blocked(kOther)});
  RuleEntry rule = BlockRule(L"No telnet");
  rule.remote_ports = L"23";
  config.rules = {rule};
  ASSERT_TRUE(world.StartWith(config));
  Client subscriber;
  subscriber.Subscribe();
  const struct {
    Attempt attempt;
    const char* reason;
    const char* line;
  } cases[] = {
      {Out(kTool, L"203.0.113.5", 443), R"("reason":"default","count":1)",
       "out\t6\tC:\\Tools\\tool.exe\t203.0.113.5:443\tdefault\r\n"},
      {Out(kOther, L"2001:db8::1", 80), R"("reason":"app","count":1)",
       "out\t6\tC:\\Tools\\other.exe\t[2001:db8::1]:80\tapp\r\n"},
      {Out(kBrowser, L"203.0.113.5", 23), R"("reason":"rule","rule":"No telnet","count":1)",
       "out\t6\tC:\\Tools\\browser.exe\t203.0.113.5:23\trule: No telnet\r\n"},
      {In(L"System", L"203.0.113.5", 445), R"("reason":"default","count":1)",
       "in\t6\tSystem\t203.0.113.5:445\tdefault\r\n"},
  };
  for (const auto& c : cases) {
    EXPECT_FALSE(world.Connects(c.attempt)) << c.line;
    const Json event = subscriber.NextEvent();
    EXPECT_EQ(event.Get("type").text(), "blocked");
    EXPECT_NE(event.Get("event").Dump(false).find(c.reason), std::string::npos)
        << event.Dump(false);
    EXPECT_NE(ActivityLog().find(std::string("2026-11-21 12:00:00\t") + c.line), std::string::npos)
        << ActivityLog();
  }
  EXPECT_EQ(Client().Command("get_log").Get("events").size(), 4U);
}

TEST_F(Reports, AllowedConnectionsAreReportedOnlyWhileSomethingAsks) {
  RuleEntry tracked = AllowRule(L"windows downloads for the signed-in user");
  tracked.app = kSvchost;
  Config config = ConfigOf({Allowed(kTool)});
  const struct {
    bool log_allowed;
    bool tracks;
    bool enabled;
    std::uint32_t keywords;
  } cases[] = {{false, false, true, 3},   {true, false, true, 0x13}, {true, true, true, 0x13},
               {false, true, true, 0x13}, {false, true, false, 3},   {true, true, false, 3},
               {false, true, true, 0x13}};
  ASSERT_TRUE(world.StartWith(config));
  for (const auto& c : cases) {
    config.log_allowed = c.log_allowed;
    config.enabled = c.enabled;
    config.rules.clear();
    if (c.tracks) config.rules.push_back(tracked);
    EXPECT_TRUE(world.Set(config).Get("ok").boolean());
    EXPECT_EQ(Keywords(), c.keywords);
  }
  world.Stop();
  EXPECT_EQ(Keywords(), 3U) << "nobody is left to hear of them";
  ASSERT_TRUE(world.Start());
  EXPECT_EQ(Keywords(), 0x13U) << "a tracked rule is tracked from the start";

  EXPECT_TRUE(world.Connects(Out(kTool, L"203.0.113.5", 443)));
  EXPECT_TRUE(world.Connects(Out(kSvchost, L"203.0.113.6", 443)));
  Client client;
  const Json reply = client.Command("get_allowed");
  EXPECT_EQ(reply.Get("enabled").Dump(false), "false");
  EXPECT_EQ(reply.Get("tracked_rules").Dump(false),
            R"(["windows downloads for the signed-in user"])");
  ASSERT_EQ(reply.Get("connections").size(), 1U) << "only the tracked rule's";
  EXPECT_EQ(reply.Get("connections").At(0).Get("remote_addr").text(), "203.0.113.6");
  EXPECT_EQ(client.Command("clear_allowed").Dump(false), R"({"ok":true})");
  EXPECT_EQ(client.Command("get_allowed").Get("connections").size(), 0U);
}

TEST_F(Reports, AnEngineThatRestartedIsListenedToAgain) {
  Config config = ConfigOf({Allowed(kTool)});
  config.log_allowed = true;
  ASSERT_TRUE(world.StartWith(config));
  world.machine().engine.Stop();
  LoopPass();
  world.machine().engine.Start();
  LoopPass();
  EXPECT_EQ(Keywords(), 0x13U);
  EXPECT_FALSE(world.Connects(Out(kOther, L"203.0.113.5", 443)));
  EXPECT_TRUE(world.Connects(Out(kTool, L"203.0.113.5", 443)));
  Client client;
  EXPECT_EQ(client.Command("get_log").Get("events").size(), 1U);
  EXPECT_EQ(client.Command("get_allowed").Get("connections").size(), 1U);
}

// A scan of all ports from many addresses, some of them again and again.
void Scan(simulation::Engine& engine, std::uint32_t drops) {
  simulation::Connection scan = ConnectionOf(In(L"System", L"203.0.113.5", 0));
  for (std::uint32_t i = 0; i < drops; ++i) {
    scan.local_port = static_cast<std::uint16_t>(i % 65535 + 1);
    scan.remote_v4 = 0xC6336400 + i % 251;
    (void)engine.Classify(scan);
    if (i % 4096 == 0) engine.WaitForNotifications();
  }
  engine.WaitForNotifications();
}

TEST_F(Reports, AStormOfDropsLosesNoCountAndHoldsNobodyUp) {
  constexpr std::uint32_t kDrops = 200'000;
  ASSERT_TRUE(world.StartWith(ConfigOf({Allowed(kTool)})));
  world.RunLoop();
  Client client;
  std::thread storm([&] { Scan(world.machine().engine, kDrops); });
  std::uint64_t asked = 0;
  std::int64_t counted = 0;
  while (counted < kDrops) {
    const Json status = client.Command("status");
    ASSERT_GE(status.Get("net_drops").integer(), counted);
    counted = status.Get("net_drops").integer();
    ++asked;
    EXPECT_LE(client.Command("get_log").Get("events").size(), 2000U);
  }
  storm.join();
  EXPECT_EQ(counted, kDrops);
  EXPECT_GT(asked, 10U) << "answered all the while";
  EXPECT_EQ(client.Command("status").Get("net_events").integer(), kDrops);
  EXPECT_EQ(client.Command("status").Get("last_error").text(), "");
  // 300 lines of some 70 bytes in each minute of the running clock.
  EXPECT_LT(ActivityLog().size(), 300U * 100 * (2 + world.machine().clock.Tick() / 60000 - 10));
}

}  // namespace
}  // namespace kestrelon::test

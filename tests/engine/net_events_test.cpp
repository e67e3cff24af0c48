// What the engine reports of its verdicts, by which options, and to whom.
#include "platform/net_events.h"

#include <mutex>
#include <utility>

#include "tests/engine/engine_world.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;
using simulation::NetEvent;
using simulation::NetEventType;

class NetEvents : public EngineWorld {
 protected:
  // Appends the remote port of each event that the subscription hears of to what Heard gives.
  SubscriptionId Subscribe(SessionId as) {
    SubscriptionId subscription = 0;
    const auto note = [this](const NetEvent& event) {
      const std::lock_guard lock(mutex_);
      heard_.push_back(event.connection.remote_port);
    };
    EXPECT_EQ(engine.SubscribeNetEvents(as, note, subscription), kSuccess);
    return subscription;
  }
  std::vector<int> Heard() {
    engine.WaitForNotifications();
    const std::lock_guard lock(mutex_);
    return std::exchange(heard_, {});
  }
  std::uint32_t Option(Engine& of, SessionId as, std::uint32_t option) {
    std::uint32_t value = 99;
    EXPECT_EQ(of.GetOption(as, option, value), kSuccess);
    return value;
  }
  std::uint64_t AddEverywhere(std::uint32_t action) {
    std::uint64_t id = 0;
    for (const Guid& layer :
         {kLayerConnectV6, kLayerRecvAcceptV4, kLayerRecvAcceptV6, kLayerConnectV4}) {
      Filter filter = SomeFilter(action);
      filter.layer = layer;
      EXPECT_EQ(engine.AddFilter(session, filter, {}, id), kSuccess);
    }
    return id;  // of the last, outbound IPv4
  }

  SessionId listener = Open(LocalSystemCaller(), kSessionDynamic);

 private:
  std::mutex mutex_;
  std::vector<int> heard_;
};

// By collection and keywords: which of these connections are reported when all are blocked.
TEST_F(NetEvents, KeywordsAddToUnicastAndOutboundDrops) {
  ByteArray16 multicast_v6{};
  multicast_v6[0] = 0xFF;
  const Connection connections[] = {
      {.remote_port = 0},
      {.remote_v4 = 0xE0000001, .remote_port = 1},
      {.layer = kLayerConnectV6, .remote_v6 = multicast_v6, .remote_port = 2},
      {.layer = kLayerRecvAcceptV4, .local_v4 = 0xC0000201, .remote_port = 3},
      {.layer = kLayerRecvAcceptV4, .local_v4 = 0xDFFFFFFF, .remote_port = 4},
      {.layer = kLayerRecvAcceptV6, .local_v4 = 0xFFFFFFFF, .remote_port = 5},
      {.layer = kLayerRecvAcceptV4, .local_v4 = 0xE0000001, .remote_port = 6},
      {.layer = kLayerRecvAcceptV4, .local_v4 = 0xEFFFFFFF, .remote_port = 7},
      {.layer = kLayerRecvAcceptV6, .local_v6 = multicast_v6, .remote_port = 8},
      {.layer = kLayerRecvAcceptV4, .local_v4 = 0xFFFFFFFF, .remote_port = 9},
  };
  const std::vector<int> plain = {0, 1, 2, 3, 4, 5};
  const struct {
    std::uint32_t collect, keywords;
    std::vector<int> inbound_groups;
  } cases[] = {{1, 0, {}},
               {1, kKeywordInboundMulticast, {6, 7, 8}},
               {1, kKeywordInboundBroadcast, {9}},
               {1, kKeywordInboundMulticast | kKeywordInboundBroadcast, {6, 7, 8, 9}},
               {1, kKeywordClassifyAllow, {}}};
  Subscribe(listener);
  AddEverywhere(kActionBlock);
  for (const auto& c : cases) {
    ASSERT_EQ(engine.SetOption(session, kNetEventKeywords, c.keywords), kSuccess);
    for (const Connection& connection : connections) EXPECT_FALSE(Permits(connection));
    std::vector<int> expected = plain;
    expected.insert(expected.end(), c.inbound_groups.begin(), c.inbound_groups.end());
    EXPECT_EQ(Heard(), expected) << "keywords " << c.keywords;
  }
}

TEST_F(NetEvents, AllowedConnectionsAreToldByTheirKeywordAlone) {
  Subscribe(listener);
  const std::uint64_t permit = AddEverywhere(kActionPermit);
  EXPECT_TRUE(Permits());
  EXPECT_TRUE(engine.NetEvents().empty());
  ASSERT_EQ(engine.SetOption(session, kNetEventKeywords, kKeywordClassifyAllow), kSuccess);
  EXPECT_TRUE(Permits({.remote_port = 1}));
  EXPECT_TRUE(Permits({.layer = kLayerRecvAcceptV4, .local_v4 = 0xE0000001, .remote_port = 2}));
  EXPECT_EQ(Heard(), (std::vector{1, 2}));
  EXPECT_EQ(engine.NetEvents().at(0).type, NetEventType::kAllow);
  EXPECT_EQ(engine.NetEvents().at(0).filter_id, permit);
  Clear();
  EXPECT_TRUE(Permits());
  EXPECT_EQ(engine.NetEvents().back().filter_id, 0u) << "no filter matched";
}

TEST_F(NetEvents, NameTheFilterThatBlockedAndItsLayer) {
  engine.SetClock([] { return 7; });
  Filter permit = SomeFilter(kActionPermit);
  permit.sublayer = Key(3);
  ASSERT_EQ(AddSublayer(session, Key(3), 0, kProvider, 200), kSuccess);
  ASSERT_EQ(Add(permit), kSuccess);
  const std::uint64_t block = AddEverywhere(kActionBlock);
  EXPECT_FALSE(Permits({.app_id = AppId(L"\\device\\a.exe"), .flags = kConditionFlagLoopback}));
  const NetEvent event = engine.NetEvents().at(0);
  EXPECT_EQ(event.type, NetEventType::kDrop);
  EXPECT_EQ(event.time, 7);
  EXPECT_EQ(event.filter_id, block) << "another sublayer's permit came first";
  EXPECT_EQ(event.connection.app_id, AppId(L"\\device\\a.exe"));
  EXPECT_EQ(event.connection.flags, kConditionFlagLoopback);
  std::uint16_t layer = 0;
  ASSERT_EQ(engine.LayerId(session, kLayerConnectV4, layer), kSuccess);
  EXPECT_EQ(event.layer_id, layer);
  EXPECT_EQ(engine.LayerId(session, Key(1), layer), kLayerNotFound);
}

TEST_F(NetEvents, NothingIsToldWhileCollectionIsOffAndTheLast128AreKept) {
  Subscribe(listener);
  AddEverywhere(kActionBlock);
  ASSERT_EQ(engine.SetOption(session, kCollectNetEvents, 0), kSuccess);
  EXPECT_FALSE(Permits());
  EXPECT_TRUE(engine.NetEvents().empty());
  ASSERT_EQ(engine.SetOption(session, kCollectNetEvents, 1), kSuccess);
  for (std::uint16_t port = 1; port <= 130; ++port) EXPECT_FALSE(Permits({.remote_port = port}));
  EXPECT_EQ(Heard().size(), 130u);
  const auto kept = engine.NetEvents();
  ASSERT_EQ(kept.size(), 128u);
  EXPECT_EQ(kept.front().connection.remote_port, 3);
  EXPECT_EQ(kept.back().connection.remote_port, 130);
}

TEST_F(NetEvents, SubscriptionsEndWithTheirSessionAndWithTheService) {
  Filter block = SomeFilter();
  block.flags = kFilterPersistent;
  ASSERT_EQ(Add(block), kSuccess);
  const SubscriptionId ended = Subscribe(listener);
  EXPECT_EQ(engine.UnsubscribeFilterChanges(listener, ended), kObjectNotFound) << "not of changes";
  EXPECT_EQ(engine.UnsubscribeNetEvents(session, ended), kObjectNotFound) << "another's";
  EXPECT_EQ(engine.UnsubscribeNetEvents(listener, ended), kSuccess);
  EXPECT_EQ(engine.UnsubscribeNetEvents(listener, ended), kObjectNotFound);
  EXPECT_FALSE(Permits());
  Subscribe(listener);
  ASSERT_EQ(engine.CloseSession(listener), kSuccess);
  EXPECT_FALSE(Permits());
  const SubscriptionId lost = Subscribe(session);
  engine.Stop();
  EXPECT_FALSE(Permits());
  engine.Start();
  EXPECT_FALSE(Permits());
  EXPECT_EQ(engine.UnsubscribeNetEvents(session, lost), kSessionAborted);
  EXPECT_EQ(Heard(), std::vector<int>());
}

TEST_F(NetEvents, OptionsAreRefusedByTheCodeOfTheMistake) {
  const SessionId user = OpenAsUser();
  SubscriptionId none = 0;
  std::uint16_t layer = 0;
  std::uint32_t value = 0;
  const auto ignore = [](const NetEvent&) {};
  EXPECT_EQ(engine.SetOption(listener, kCollectNetEvents, 0), kDynamicSessionInProgress);
  EXPECT_EQ(engine.SetOption(user, kCollectNetEvents, 0), kAccessDenied);
  EXPECT_EQ(engine.GetOption(user, kCollectNetEvents, value), kAccessDenied);
  EXPECT_EQ(engine.SubscribeNetEvents(user, ignore, none), kAccessDenied);
  EXPECT_EQ(engine.LayerId(user, kLayerConnectV4, layer), kAccessDenied);
  EXPECT_EQ(engine.SetOption(session, 2, 0), kInvalidEnumerator);
  EXPECT_EQ(engine.GetOption(session, 2, value), kInvalidEnumerator);
  EXPECT_EQ(engine.SetOption(session, kCollectNetEvents, 2), 0x80320028u);
  EXPECT_EQ(engine.SetOption(session, kNetEventKeywords, 0x40), kInvalidFlags);
  ASSERT_EQ(engine.Begin(session, 0), kSuccess);
  EXPECT_EQ(engine.SetOption(session, kCollectNetEvents, 0), kTransactionInProgress);
  EXPECT_EQ(engine.SubscribeNetEvents(session, ignore, none), kTransactionInProgress);
  ASSERT_EQ(engine.Abort(session), kSuccess);
  EXPECT_EQ(Option(engine, session, kCollectNetEvents), 1u);
  EXPECT_EQ(Option(engine, session, kNetEventKeywords), 0u);
}

TEST_F(NetEvents, OptionsOutliveTheServiceTheMachineAndThePower) {
  ASSERT_EQ(engine.SetOption(session, kCollectNetEvents, 0), kSuccess);
  ASSERT_EQ(engine.SetOption(session, kNetEventKeywords, 0x13), kSuccess);
  const Bytes saved = engine.SavePersistent();
  engine.Stop();
  engine.Start();
  engine.Restart();
  engine.Start();
  Engine loaded;
  ASSERT_TRUE(loaded.LoadPersistent(saved));
  for (Engine* of : {&engine, &loaded}) {
    SessionId reader = 0;
    ASSERT_EQ(of->OpenSession({}, AdministratorCaller(), reader), kSuccess);
    EXPECT_EQ(Option(*of, reader, kCollectNetEvents), 0u);
    EXPECT_EQ(Option(*of, reader, kNetEventKeywords), 0x13u);
  }
}

}  // namespace
}  // namespace simulation

// What the engine reports of its verdicts, by which options.
#include "platform/net_events.h"

#include "tests/engine/engine_world.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

class NetEvents : public EngineWorld {
 protected:
  // The remote ports of the events kept, by which the cases tell connections apart.
  std::vector<int> Reported() const {
    std::vector<int> ports;
    for (const auto& event : engine.NetEvents()) ports.push_back(event.connection.remote_port);
    return ports;
  }
  void Set(EngineOption option, std::uint32_t value) {
    ASSERT_EQ(engine.SetOption(session, option, value), kSuccess);
  }
};

TEST_F(NetEvents, KeywordsAddInboundGroupsAndAllowedConnections) {
  ByteArray16 multicast_v6{};
  multicast_v6[0] = 0xFF;
  const Connection connections[] = {
      {.remote_v4 = 0xE0000001, .remote_port = 0},
      {.layer = kLayerConnectV6, .remote_v6 = multicast_v6, .remote_port = 1},
      {.layer = kLayerRecvAcceptV4, .local_v4 = 0xDFFFFFFF, .remote_port = 2},
      {.layer = kLayerRecvAcceptV6, .local_v4 = 0xFFFFFFFF, .remote_port = 3},
      {.layer = kLayerRecvAcceptV4, .local_v4 = 0xE0000000, .remote_port = 4},
      {.layer = kLayerRecvAcceptV4, .local_v4 = 0xEFFFFFFF, .remote_port = 5},
      {.layer = kLayerRecvAcceptV6, .local_v6 = multicast_v6, .remote_port = 6},
      {.layer = kLayerRecvAcceptV4, .local_v4 = 0xFFFFFFFF, .remote_port = 7},
  };
  const struct {
    std::uint32_t keywords;
    std::vector<int> drops;
    std::vector<int> allowed;
  } cases[] = {
      {0, {0, 1, 2, 3}, {}},
      {kKeywordInboundMulticast, {0, 1, 2, 3, 4, 5, 6}, {}},
      {kKeywordInboundBroadcast, {0, 1, 2, 3, 7}, {}},
      {kKeywordClassifyAllow, {0, 1, 2, 3}, {0, 1, 2, 3, 4, 5, 6, 7}},
      {kKeywordInboundMulticast | kKeywordInboundBroadcast, {0, 1, 2, 3, 4, 5, 6, 7}, {}},
  };
  std::vector<int> expected;
  for (const auto& c : cases) {
    Set(kNetEventKeywords, c.keywords);
    for (const Connection& connection : connections) EXPECT_TRUE(Permits(connection));
    for (const Connection& connection : connections) {
      Filter block = SomeFilter();
      block.layer = connection.layer;
      ASSERT_EQ(Add(block), kSuccess);
      EXPECT_FALSE(Permits(connection));
    }
    expected.insert(expected.end(), c.allowed.begin(), c.allowed.end());
    expected.insert(expected.end(), c.drops.begin(), c.drops.end());
    EXPECT_EQ(Reported(), expected) << "keywords " << c.keywords;
    Clear();
  }
}

}  // namespace
}  // namespace simulation

// What conditions match: each kind of operand, each match type, and their combination.
#include "tests/engine/engine_world.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;
using simulation::Bytes;
using simulation::Sid;

class Conditions : public EngineWorld {
 protected:
  // Whether a filter with these conditions matches; it alone is there.
  bool Match(std::vector<Condition> conditions, const Connection& connection,
             std::uint32_t action = kActionBlock) {
    Filter filter = SomeFilter(action, std::uint8_t{1}, std::move(conditions));
    filter.key = Key(1);
    filter.layer = connection.layer;
    EXPECT_EQ(Add(filter), kSuccess);
    const bool matched = engine.Classify(connection).filter != nullptr;
    EXPECT_EQ(engine.DeleteFilter(session, Key(1)), kSuccess);
    return matched;
  }
};

TEST_F(Conditions, Ipv6PrefixesCutAtEachLength) {
  ByteArray16 address;
  address.fill(0x55);
  constexpr std::uint8_t kPrefixes[] = {0, 1, 7, 8, 63, 64, 65, 127, 128};
  for (const std::uint8_t prefix : kPrefixes) {
    const Condition condition{kFieldRemoteAddress, kMatchEqual, Ipv6Mask{address, prefix}};
    for (std::size_t bit = 0; bit < 128; ++bit) {
      ByteArray16 other = address;
      other[bit / 8] = static_cast<std::uint8_t>(other[bit / 8] ^ (0x80 >> (bit % 8)));
      EXPECT_EQ(Match({condition}, {.layer = kLayerConnectV6, .remote_v6 = other}), bit >= prefix)
          << "prefix " << int{prefix} << ", bit " << bit;
    }
  }
  ByteArray16 last = address;
  last[15] = 0x60;
  const Condition range{kFieldLocalAddress, kMatchRange, ValueRange{address, last}};
  EXPECT_TRUE(Match({range}, {.layer = kLayerRecvAcceptV6, .local_v6 = last}));
  last[0] = 0x56;
  EXPECT_FALSE(Match({range}, {.layer = kLayerRecvAcceptV6, .local_v6 = last}));
}

TEST_F(Conditions, ProgramIsComparedToTheLastByte) {
  const Bytes program = AppId(L"\\device\\a.exe");
  const Condition same{kFieldAppId, kMatchEqual, ByteBlob{program}};
  EXPECT_TRUE(Match({same}, {.app_id = program}));
  for (const wchar_t* path : {L"\\device\\a.ex", L"\\device\\A.exe", L"\\device\\a.exe2"}) {
    EXPECT_FALSE(Match({same}, {.app_id = AppId(path)})) << path;
  }
  // Without a program there is nothing to compare; only the empty value matches that.
  EXPECT_FALSE(Match({same}, {}));
  EXPECT_TRUE(Match({{kFieldAppId, kMatchEqual, std::monostate{}}}, {}));
  EXPECT_FALSE(Match({{kFieldAppId, kMatchEqual, std::monostate{}}}, {.app_id = program}));
}

// A user condition is an access check for the right to match, with entries in their order.
TEST_F(Conditions, UserIsAnAccessCheck) {
  const Sid alice = MakeSid(5, {21, 1, 2, 3, 1001});
  const Sid service = MakeSid(5, {80, 1, 2, 3, 4, 5});
  const struct {
    std::vector<AccessEntry> entries;
    std::vector<Sid> token;
    bool matches;
  } cases[] = {
      {{{true, 0x1, alice}}, {alice, EveryoneSid()}, true},
      {{{true, 0x1, alice}}, {service}, false},
      {{{true, 0x1, alice}}, {}, false},
      {{{true, 0x2, alice}}, {alice}, false},
      {{{true, 0x3, EveryoneSid()}}, {alice, EveryoneSid()}, true},
      {{{false, 0x1, service}, {true, 0x1, alice}}, {alice, service}, false},
      {{{true, 0x1, alice}, {false, 0x1, service}}, {alice, service}, true},
      {{{false, 0x2, alice}, {true, 0x1, alice}}, {alice}, true},
      {{}, {alice}, false},
  };
  for (const auto& c : cases) {
    const Condition condition{kFieldUserId, kMatchEqual, UserCondition(c.entries)};
    EXPECT_EQ(Match({condition}, {.user_sids = c.token}), c.matches) << "case " << &c - cases;
  }
}

// What stands together the comparison of random configurations tries.
TEST_F(Conditions, ValuesOfAFieldThatStandApartCountInTheWayThatBlocksMore) {
  const Condition tcp{kFieldProtocol, kMatchEqual, std::uint8_t{6}};
  const Condition web{kFieldRemotePort, kMatchEqual, std::uint16_t{80}};
  const Condition tls{kFieldRemotePort, kMatchEqual, std::uint16_t{443}};
  EXPECT_TRUE(Match({web, tcp, tls}, {.protocol = 6, .remote_port = 80}, kActionBlock));
  EXPECT_FALSE(Match({web, tcp, tls}, {.protocol = 6, .remote_port = 80}, kActionPermit));
}

}  // namespace
}  // namespace simulation

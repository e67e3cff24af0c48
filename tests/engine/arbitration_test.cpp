// Which filter decides: within a sublayer, across sublayers, at equal weight.
#include "tests/engine/engine_world.h"

namespace simulation {
namespace {

using platform::kActionBlock;
using platform::kActionPermit;
using platform::kSuccess;

using Arbitration = EngineWorld;

TEST_F(Arbitration, HigherWeightDecidesInASublayer) {
  const struct {
    Value permit, block;
    bool permits;
  } cases[] = {
      {std::uint8_t{1}, std::uint8_t{0}, true},
      {std::uint8_t{14}, std::uint8_t{15}, false},
      {std::uint64_t{1} << 63, std::uint8_t{7}, true},
      {std::uint64_t{0x7FFFFFFFFFFFFFFF}, std::uint8_t{8}, false},
      {std::monostate{}, std::uint8_t{1}, false},
  };
  for (const auto& c : cases) {
    for (const bool block_first : {false, true}) {
      const Filter permit = SomeFilter(kActionPermit, c.permit);
      const Filter block = SomeFilter(kActionBlock, c.block);
      ASSERT_EQ(Add(block_first ? block : permit), kSuccess);
      ASSERT_EQ(Add(block_first ? permit : block), kSuccess);
      const Verdict verdict = engine.Classify({});
      EXPECT_EQ(verdict.permit, c.permits) << "case " << &c - cases;
      ASSERT_NE(verdict.filter, nullptr);
      EXPECT_EQ(verdict.filter->action, c.permits ? kActionPermit : kActionBlock);
      Clear();
    }
  }
}

TEST_F(Arbitration, SublayersOverruleEachOtherByActionRight) {
  enum Says { kNothing, kPermit, kHardPermit, kBlock, kHardBlock };
  const struct {
    Says high, low;
    bool permits, high_decides;
  } cases[] = {
      {kPermit, kNothing, true, true},       {kPermit, kPermit, true, true},
      {kPermit, kBlock, false, false},       {kHardPermit, kBlock, true, true},
      {kHardPermit, kHardBlock, true, true}, {kBlock, kPermit, false, true},
      {kBlock, kHardPermit, false, true},    {kHardBlock, kHardPermit, false, true},
      {kNothing, kHardPermit, true, false},  {kNothing, kBlock, false, false},
  };
  ASSERT_EQ(AddSublayer(Key(11), 0, 200), kSuccess);
  ASSERT_EQ(AddSublayer(Key(12), 0, 50), kSuccess);
  const auto say = [&](std::uint8_t sublayer, Says says) {
    if (says == kNothing) return;
    const bool permits = says == kPermit || says == kHardPermit;
    Filter filter = SomeFilter(permits ? kActionPermit : kActionBlock);
    filter.key = filter.sublayer = Key(sublayer);
    const bool hard = says == kHardPermit || says == kHardBlock;
    if (hard) filter.flags = platform::kFilterClearActionRight;
    ASSERT_EQ(Add(filter), kSuccess);
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    say(11, c.high);
    say(12, c.low);
    const Verdict verdict = engine.Classify({});
    EXPECT_EQ(verdict.permit, c.permits);
    EXPECT_EQ(verdict.filter->key, Key(c.high_decides ? 11 : 12));
    EXPECT_EQ(verdict.sublayers.size(), c.high == kNothing || c.low == kNothing ? 1 : 2);
    Clear();
  }
}

TEST_F(Arbitration, TieOfAPermitAndABlockIsFoundAndBlocks) {
  const Condition port{platform::kFieldRemotePort, platform::kMatchEqual, std::uint16_t{443}};
  ASSERT_EQ(Add(SomeFilter(kActionPermit)), kSuccess);
  ASSERT_EQ(Add(SomeFilter(kActionPermit)), kSuccess);
  EXPECT_FALSE(engine.Classify({}).tied_conflict) << "they agree";
  ASSERT_EQ(Add(SomeFilter(kActionBlock, std::uint8_t{8}, {port})), kSuccess);
  EXPECT_FALSE(engine.Classify({.remote_port = 443}).tied_conflict) << "one is narrower";
  ASSERT_EQ(Add(SomeFilter(kActionPermit, std::uint8_t{8}, {port})), kSuccess);
  const Verdict verdict = engine.Classify({.remote_port = 443});
  EXPECT_TRUE(verdict.tied_conflict);
  EXPECT_FALSE(verdict.permit);
  EXPECT_FALSE(engine.Classify({.remote_port = 80}).tied_conflict) << "the tie doesn't match";
  EXPECT_EQ(engine.TiedConflicts(), 1u);
  // A permit that others may overrule and one that they may not disagree as well.
  Filter hard = SomeFilter(kActionPermit);
  hard.flags = platform::kFilterClearActionRight;
  ASSERT_EQ(Add(hard), kSuccess);
  EXPECT_TRUE(engine.Classify({}).tied_conflict);
}

}  // namespace
}  // namespace simulation

// What the engine refuses, and with which code.
#include "tests/engine/engine_world.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

using Validation = EngineWorld;

TEST_F(Validation, ConditionIsRefusedByTheCodeOfItsMistake) {
  const Guid destination_type = kestrelon::MakeGuid("1ec1b7c9-4eea-4f5e-b9ef-76beaaaf17ee");
  const ByteArray16 v6{};
  const struct {
    Code code;
    Condition condition;
    Guid layer = kLayerConnectV4;
  } cases[] = {
      {kConditionNotFound, {destination_type, kMatchEqual, std::uint8_t{1}}, kLayerRecvAcceptV4},
      {kSuccess, {destination_type, kMatchEqual, std::uint8_t{1}}},
      // No type is widened to another.
      {kTypeMismatch, {kFieldProtocol, kMatchEqual, std::uint16_t{6}}},
      {kTypeMismatch, {kFieldRemoteAddress, kMatchEqual, Ipv4Mask{}}, kLayerRecvAcceptV6},
      {kTypeMismatch, {kFieldUserId, kMatchEqual, SidValue{EveryoneSid()}}},
      {kTypeMismatch, {kFieldPackageId, kMatchEqual, ByteBlob{{1}}}},
      {kTypeMismatch, {kFieldProtocol, kMatchEqual, OtherValue{17}}},
      {kMatchTypeMismatch, {kFieldProtocol, kMatchRange, std::uint8_t{1}}},
      {kMatchTypeMismatch, {kFieldUserId, kMatchNotEqual, UserCondition({})}},
      {kMatchTypeMismatch,
       {kFieldRemotePort, kMatchEqual, ValueRange{std::uint16_t{1}, std::uint16_t{2}}}},
      {kInvalidRange,
       {kFieldRemotePort, kMatchRange, ValueRange{std::uint16_t{1}, std::uint32_t{2}}}},
      {kSuccess, {kFieldRemotePort, kMatchRange, ValueRange{std::uint16_t{2}, std::uint16_t{2}}}},
      {kInvalidNetMask, {kFieldRemoteAddress, kMatchEqual, Ipv4Mask{0, 0xFF00FF00}}},
      {kInvalidNetMask, {kFieldRemoteAddress, kMatchEqual, Ipv6Mask{v6, 129}}, kLayerConnectV6},
      {kNullPointer, {kFieldUserId, kMatchEqual, DescriptorValue{}}},
      {0x80320022, {kFieldAppId, kMatchEqual, ByteBlob{}}},
      {0x80320035, {kFieldPackageId, kMatchEqual, SidValue{{1, 2, 0, 0, 0, 0, 0, 5}}}},
      {kInvalidSecurityDescriptor, {kFieldUserId, kMatchEqual, DescriptorValue{{1, 0, 4}}}},
  };
  for (const auto& c : cases) {
    Filter filter = SomeFilter(kActionBlock, {}, {c.condition});
    filter.layer = c.layer;
    EXPECT_EQ(Add(filter), c.code) << "case " << &c - cases;
  }
}

// Bytes cut or changed anywhere are refused or read, but never beyond their end.
TEST_F(Validation, DamagedDescriptorIsNeverReadBeyondItsEnd) {
  const Bytes whole = DescriptorOf({{true, 1, EveryoneSid()}, {false, 2, LocalSystemSid()}});
  ObjectSecurity security;
  EXPECT_TRUE(ParseDescriptor(whole, security));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(ParseDescriptor(cut, security)) << size;
  }
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const int value : {0x00, 0x01, 0x7F, 0xFF}) {
      Bytes changed = whole;
      changed[at] = static_cast<std::uint8_t>(value);
      if (ParseDescriptor(changed, security) && security.dacl) {
        EXPECT_LE(security.dacl->size(), 2u) << at;
      }
    }
  }
}

}  // namespace
}  // namespace simulation

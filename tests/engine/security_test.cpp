// Who may do what: access lists that refuse.
#include "tests/engine/engine_world.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;
using simulation::Sid;

class Security : public EngineWorld {
 protected:
  // SYSTEM may do everything, administrators have `mask`.
  static Bytes Lock(std::uint32_t mask) {
    return DescriptorOf({{true, kAllRights, LocalSystemSid()}, {true, mask, AdministratorsSid()}});
  }

  SessionId administrator = Open(AdministratorCaller());
};

TEST_F(Security, PlainUsersMayOpenAndNothingElse) {
  const SessionId as = OpenAsUser();
  Filter filter = WithKey(1);
  ASSERT_EQ(Add(filter), kSuccess);
  EnumId enumeration = 0;
  SubscriptionId subscription = 0;
  const auto ignore = [](const FilterChange&) {};
  EXPECT_EQ(engine.Begin(as, 0), kAccessDenied);
  EXPECT_EQ(engine.Begin(as, kTransactionReadOnly), kAccessDenied);
  EXPECT_EQ(AddAs(as, SomeFilter()), kAccessDenied);
  EXPECT_EQ(engine.DeleteFilter(as, Key(1)), kAccessDenied);
  EXPECT_EQ(engine.GetFilter(as, Key(1), filter), kAccessDenied);
  EXPECT_EQ(engine.OpenFilterEnum(as, enumeration), kAccessDenied);
  EXPECT_EQ(engine.SubscribeFilterChanges(as, 3, ignore, subscription), kAccessDenied);
  EXPECT_EQ(engine.SetFilterDacl(as, Key(1), {}), kAccessDenied);
  std::uint16_t layer = 0;
  std::uint32_t value = 0;
  EXPECT_EQ(engine.SubscribeNetEvents(
                as, [](const auto&) {}, subscription),
            kAccessDenied);
  EXPECT_EQ(engine.SetOption(as, 0, 0), kAccessDenied);
  EXPECT_EQ(engine.GetOption(as, 0, value), kAccessDenied);
  EXPECT_EQ(engine.LayerId(as, kLayerConnectV4, layer), kAccessDenied);
}

TEST_F(Security, LockedObjectsRefuseAdministratorsByRight) {
  constexpr Code kDenied = kAccessDenied;
  const struct {
    std::uint32_t mask;
    Code get, erase, set_dacl, add;
  } cases[] = {
      {kAllRights, kSuccess, kSuccess, kSuccess, kSuccess},
      {kAllRights & ~kRightDelete, kSuccess, kDenied, kSuccess, kSuccess},
      {kAllRights & ~kRightAddLink, kSuccess, kSuccess, kSuccess, kDenied},
      {kRightRead | kRightWriteDac, kSuccess, kDenied, kSuccess, kDenied},
      {kRightWriteDac, kDenied, kDenied, kSuccess, kDenied},
      {kRightRead, kSuccess, kDenied, kDenied, kDenied},
      {0x80000000, kSuccess, kDenied, kDenied, kDenied},   // generic read
      {0x40000000, kDenied, kSuccess, kDenied, kSuccess},  // generic write
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    ASSERT_EQ(AddAs(session, WithKey(1), Lock(c.mask)), kSuccess);
    Filter read;
    EXPECT_EQ(engine.GetFilter(administrator, Key(1), read), c.get);
    EXPECT_EQ(engine.SetFilterDacl(administrator, Key(1), Lock(c.mask)), c.set_dacl);
    EXPECT_EQ(engine.DeleteFilter(administrator, Key(1)), c.erase);
    Clear();
    // The right to link is needed of the sublayer and of the provider.
    ASSERT_EQ(engine.SetSublayerDacl(session, kSublayer, Lock(c.mask)), kSuccess);
    EXPECT_EQ(AddAs(administrator, SomeFilter()), c.add) << "sublayer";
    ASSERT_EQ(engine.SetSublayerDacl(session, kSublayer, Lock(kAllRights)), kSuccess);
    ASSERT_EQ(engine.SetProviderDacl(session, kProvider, Lock(c.mask)), kSuccess);
    EXPECT_EQ(AddAs(administrator, SomeFilter()), c.add) << "provider";
    ASSERT_EQ(engine.SetProviderDacl(session, kProvider, Lock(kAllRights)), kSuccess);
  }
}

TEST_F(Security, EnumerationLeavesOutWhatMayNotBeRead) {
  for (std::uint8_t key = 1; key <= 3; ++key) {
    ASSERT_EQ(AddAs(session, WithKey(key), Lock(key == 2 ? kRightDelete : kRightRead)), kSuccess);
  }
  for (const SessionId as : {session, administrator}) {
    EnumId enumeration = 0;
    FilterList filters;
    ASSERT_EQ(engine.OpenFilterEnum(as, enumeration), kSuccess);
    ASSERT_EQ(engine.NextFilters(as, enumeration, 10, filters), kSuccess);
    EXPECT_EQ(filters.size(), as == session ? 3u : 2u);
  }
}

}  // namespace
}  // namespace simulation

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

}  // namespace
}  // namespace simulation

// How long objects live, and what is in force while the service is gone.
#include "tests/engine/engine_world.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

using Lifetimes = EngineWorld;

// Which of the filters of each lifetime block, by the port that each of them is about.
TEST_F(Lifetimes, EachStateOfTheServiceEnforcesItsOwn) {
  const auto add = [&](SessionId as, std::uint16_t port, std::uint32_t flags) {
    Filter filter = WithKey(static_cast<std::uint8_t>(port), flags);
    filter.conditions = {{kFieldRemotePort, kMatchEqual, port}};
    ASSERT_EQ(AddAs(as, filter), kSuccess);
  };
  const auto blocked = [&] {
    std::string ports;
    for (std::uint16_t port = 1; port <= 4; ++port) {
      if (!Permits({.remote_port = port})) ports += static_cast<char>('0' + port);
    }
    return ports;
  };
  const SessionId dynamic = Open(LocalSystemCaller(), kSessionDynamic);
  add(dynamic, 1, 0);
  add(session, 2, 0);
  add(session, 3, kFilterPersistent);
  add(session, 4, kFilterBootTime);
  EXPECT_EQ(blocked(), "123");
  ASSERT_EQ(engine.CloseSession(dynamic), kSuccess);
  EXPECT_EQ(blocked(), "23");
  engine.Stop();
  EXPECT_EQ(blocked(), "3") << "stopped";
  engine.Start();
  EXPECT_EQ(blocked(), "3") << "started";
  engine.Restart();
  EXPECT_EQ(blocked(), "4") << "while the machine starts";
  engine.Start();
  EXPECT_EQ(blocked(), "3") << "after the machine's start";
  EXPECT_TRUE(Has(Key(4)));
}

TEST_F(Lifetimes, PersistentObjectsComeBackFromTheirBytes) {
  Filter permit = WithKey(1, kFilterPersistent | kFilterIndexed);
  permit.action = kActionPermit;
  permit.weight = std::uint8_t{9};
  permit.conditions = {{kFieldRemotePort, kMatchEqual, std::uint16_t{9}}};
  const Bytes locked = DescriptorOf({{false, kRightDelete, AdministratorsSid()},
                                     {true, kAllRights & ~kRightWriteDac, EveryoneSid()}});
  ASSERT_EQ(AddAs(Open(AdministratorCaller()), permit, locked), kSuccess);
  ASSERT_EQ(Add(WithKey(2, kFilterPersistent)), kSuccess);
  ASSERT_EQ(Add(WithKey(3, kFilterBootTime)), kSuccess);
  ASSERT_EQ(Add(WithKey(4)), kSuccess);
  ASSERT_EQ(engine.Begin(session, 0), kSuccess);
  ASSERT_EQ(Add(WithKey(5, kFilterPersistent)), kSuccess);
  ASSERT_EQ(engine.DeleteFilter(session, Key(2)), kSuccess);
  const Bytes saved = engine.SavePersistent();
  ASSERT_EQ(engine.Abort(session), kSuccess);

  Engine loaded;
  ASSERT_TRUE(loaded.LoadPersistent(saved));
  std::vector<Guid> keys;
  for (const auto& filter : loaded.Filters()) keys.push_back(filter->key);
  EXPECT_EQ(keys, (std::vector{Key(1), Key(2), Key(3)})) << "as committed";
  EXPECT_TRUE(loaded.Classify({.remote_port = 9}).permit);
  EXPECT_FALSE(loaded.Classify({}).permit);
  SessionId reader = 0;
  ASSERT_EQ(loaded.OpenSession({}, AdministratorCaller(), reader), kSuccess);
  EXPECT_EQ(loaded.DeleteFilter(reader, Key(1)), kAccessDenied);
  EXPECT_EQ(loaded.SetFilterDacl(reader, Key(1), locked), kSuccess) << "as its owner";

  for (std::size_t size = 0; size < saved.size(); ++size) {
    const Bytes cut(saved.begin(), saved.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(loaded.LoadPersistent(cut)) << size;
  }
  EXPECT_EQ(loaded.Filters().size(), 3u) << "unchanged by what was refused";
}

}  // namespace
}  // namespace simulation

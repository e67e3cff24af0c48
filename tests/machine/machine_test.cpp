// Faults strike the calls they are meant for; every sweep relies on it.
#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/registry.h"
#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

Code Read() {
  std::uint32_t value = 0;
  return ReadRegistryDword(L"SOFTWARE\\X", L"Y", value);
}

Code Make() {
  return MakeDirectory(L"C:\\ProgramData\\made");
}

TEST(Faults, NthCallOfAnyNameFailsOnce) {
  Faults& faults = TheMachine().faults;
  faults.FailNth(2, kDiskFull);
  EXPECT_EQ(Read(), kFileNotFound);
  EXPECT_FALSE(faults.fired());
  EXPECT_EQ(Make(), kDiskFull);
  EXPECT_EQ(faults.fired_name(), "MakeDirectory");
  EXPECT_FALSE(TheMachine().files.Exists(L"C:\\ProgramData\\made"));
  EXPECT_EQ(Make(), kSuccess);
  EXPECT_EQ(faults.calls(), 3u);
}

}  // namespace
}  // namespace simulation

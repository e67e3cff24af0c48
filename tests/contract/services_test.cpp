// The service manager, and version resources of files.
#include "platform/services.h"

#include <gtest/gtest.h>

#include "platform/resources.h"
#include "tests/contract/scratch.h"

namespace {

using namespace kestrelon::platform;
using namespace contract;

constexpr std::uint32_t kQuery = kServiceQueryConfig | kServiceQueryStatus;

std::vector<std::wstring> AllServices(const ServiceHandle& manager) {
  std::vector<std::wstring> names;
  EXPECT_EQ(EnumerateServices(manager, kServiceTypeWin32, kServiceStateAll, names), kSuccess);
  EXPECT_FALSE(names.empty());
  return names;
}

TEST(Services, AreListedAndEachCanBeAsked) {
  ServiceHandle manager;
  ASSERT_EQ(OpenServiceManager(kManagerConnect | kManagerEnumerate, manager), kSuccess);
  for (const std::wstring& name : AllServices(manager)) {
    ServiceHandle service;
    ASSERT_EQ(OpenServiceByName(manager, name, kQuery, service), kSuccess);
    ServiceSettings settings;
    EXPECT_EQ(QueryServiceSettings(service, settings), kSuccess);
    EXPECT_FALSE(settings.binary_path.empty()) << testing::PrintToString(name);
    EXPECT_FALSE(settings.display_name.empty()) << testing::PrintToString(name);
    std::uint32_t state = 0;
    EXPECT_EQ(QueryServiceState(service, state), kSuccess);
    EXPECT_TRUE(state >= 1 && state <= 7) << state;
  }
}

TEST(Services, TellTheTypeOfTheirSid) {
  ServiceHandle manager;
  ASSERT_EQ(OpenServiceManager(kManagerConnect | kManagerEnumerate, manager), kSuccess);
  for (const std::wstring& name : AllServices(manager)) {
    ServiceHandle service;
    ASSERT_EQ(OpenServiceByName(manager, name, kQuery, service), kSuccess);
    std::uint32_t type = 99;
    ASSERT_EQ(QueryServiceSidType(service, type), kSuccess);
    EXPECT_TRUE(type == 0 || type == 1 || type == 3) << type;
  }
}

TEST(Services, AreRefusedWhenMissingOrNotAskedFor) {
  ServiceHandle manager;
  ASSERT_EQ(OpenServiceManager(kManagerConnect, manager), kSuccess);
  ServiceHandle service;
  EXPECT_EQ(OpenServiceByName(manager, L"NoSuchService", kQuery, service), kServiceNotFound);
  EXPECT_EQ(service.handle(), 0u);
  std::vector<std::wstring> names = {L"kept"};
  EXPECT_EQ(EnumerateServices(manager, kServiceTypeWin32, kServiceStateAll, names), kAccessDenied);
  EXPECT_EQ(names, std::vector<std::wstring>{L"kept"});

  ServiceHandle lister;
  ASSERT_EQ(OpenServiceManager(kManagerConnect | kManagerEnumerate, lister), kSuccess);
  const std::wstring some = AllServices(lister).front();
  ASSERT_EQ(OpenServiceByName(manager, some, kServiceQueryStatus, service), kSuccess);
  ServiceSettings settings;
  EXPECT_EQ(QueryServiceSettings(service, settings), kAccessDenied);
  service.Close();
  EXPECT_EQ(QueryServiceSettings(service, settings), kInvalidHandle);
}

TEST(VersionBlock, IsAbsentWithoutAResource) {
  const std::wstring directory = FreshDirectory();
  WriteWhole(directory + L"\\plain.txt", "no resources");
  VersionBlock block;
  EXPECT_NE(LoadVersionBlock(directory + L"\\plain.txt", block), kSuccess);
  EXPECT_EQ(LoadVersionBlock(directory + L"\\none", block), kFileNotFound);
  std::vector<std::uint8_t> bytes;
  EXPECT_FALSE(VersionBytes(block, L"\\VarFileInfo\\Translation", bytes));
}

}  // namespace

// The service manager.
#include "platform/services.h"

#include <gtest/gtest.h>

#include <functional>

#include "platform/service_host.h"

namespace {

using namespace kestrelon::platform;

constexpr std::uint32_t kQuery = kServiceQueryConfig | kServiceQueryStatus;

void ForAllServices(const std::function<void(const ServiceHandle& service)>& check) {
  ServiceHandle manager;
  std::vector<std::wstring> names;
  ASSERT_EQ(OpenServiceManager(kManagerConnect | kManagerEnumerate, manager), kSuccess);
  EXPECT_EQ(EnumerateServices(manager, kServiceTypeWin32, kServiceStateAll, names), kSuccess);
  EXPECT_FALSE(names.empty());
  for (const std::wstring& name : names) {
    SCOPED_TRACE(testing::PrintToString(name));
    ServiceHandle service;
    ASSERT_EQ(OpenServiceByName(manager, name, kQuery, service), kSuccess);
    check(service);
  }
}

TEST(Services, AreListedAndEachCanBeAsked) {
  ForAllServices([](const ServiceHandle& service) {
    ServiceSettings settings;
    EXPECT_EQ(QueryServiceSettings(service, settings), kSuccess);
    EXPECT_FALSE(settings.binary_path.empty());
    EXPECT_FALSE(settings.display_name.empty());
    std::uint32_t state = 0;
    EXPECT_EQ(QueryServiceState(service, state), kSuccess);
    EXPECT_TRUE(state >= 1 && state <= 7) << state;
  });
}

TEST(Services, TellTheTypeOfTheirSid) {
  ForAllServices([](const ServiceHandle& service) {
    std::uint32_t type = 99;
    EXPECT_EQ(QueryServiceSidType(service, type), kSuccess);
    EXPECT_TRUE(type == 0 || type == 1 || type == 3) << type;
  });
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
  std::vector<ServiceProcess> services(1);
  EXPECT_EQ(EnumerateServiceProcesses(manager, kServiceTypeWin32, kServiceStateAll, services),
            kAccessDenied);
  EXPECT_EQ(services.size(), 1u);
}

TEST(ServiceProcesses, AreThoseOfTheRunningServices) {
  ServiceHandle manager;
  ASSERT_EQ(OpenServiceManager(kManagerConnect | kManagerEnumerate, manager), kSuccess);
  std::vector<ServiceProcess> active = {{L"left over", 1}};
  ASSERT_EQ(EnumerateServiceProcesses(manager, kServiceTypeWin32, kServiceStateActive, active),
            kSuccess);
  EXPECT_FALSE(active.empty());
  for (const ServiceProcess& service : active) {
    EXPECT_NE(service.process_id, 0u) << testing::PrintToString(service.name);
  }
  std::vector<ServiceProcess> all;
  ASSERT_EQ(EnumerateServiceProcesses(manager, kServiceTypeWin32, kServiceStateAll, all), kSuccess);
  std::erase_if(all, [](const ServiceProcess& service) { return service.process_id == 0; });
  EXPECT_EQ(all.size(), active.size());
}

// A service of this machine's, gone again at the end of the case. Its program is not there.
class OwnService : public testing::Test {
 protected:
  void SetUp() override {
    record_.name = L"KestrelonContract";
    record_.display_name = L"Kestrelon contract";
    record_.start = 3;  // on demand
    record_.binary_path = L"\"C:\\No Such Directory\\service.exe\"";
    ASSERT_EQ(OpenServiceManager(kManagerAllAccess, manager_), kSuccess);
    ASSERT_EQ(RegisterService(manager_, record_, service_), kSuccess);
  }

  void TearDown() override {
    if (service_.handle() != 0) (void)UnregisterService(service_);
  }

  ServiceRecord record_;
  ServiceHandle manager_;
  ServiceHandle service_;
};

TEST_F(OwnService, HoldsItsRecordUntilUpdated) {
  for (const bool updated : {false, true}) {
    if (updated) {
      record_.display_name = L"Kestrelon contract, updated";
      record_.binary_path = L"C:\\elsewhere.exe";
      record_.dependencies = {L"EventLog"};
      EXPECT_EQ(UpdateService(service_, record_), kSuccess);
    }
    ServiceSettings settings;
    ASSERT_EQ(QueryServiceSettings(service_, settings), kSuccess);
    EXPECT_EQ(settings.display_name, record_.display_name);
    EXPECT_EQ(settings.binary_path, record_.binary_path);
  }
  EXPECT_EQ(DescribeService(service_, L"What it is for"), kSuccess);
  EXPECT_EQ(SetServiceFailureActions(service_, {86400, {1000, 2000}}), kSuccess);
}

TEST_F(OwnService, TakesTheFlagOfItsFailureActions) {
  EXPECT_EQ(SetServiceFailureFlag(service_, true), kSuccess);
}

TEST_F(OwnService, IsStoppedUntilItStarts) {
  std::uint32_t state = 0;
  EXPECT_EQ(QueryServiceState(service_, state), kSuccess);
  EXPECT_EQ(state, kServiceStopped);
  EXPECT_EQ(RequestServiceStop(service_), 1062u);  // not active
  EXPECT_EQ(LaunchService(service_), kFileNotFound);
  EXPECT_EQ(QueryServiceState(service_, state), kSuccess);
  EXPECT_EQ(state, kServiceStopped);
}

TEST_F(OwnService, IsRegisteredOnceAndGoesOnceItIsDeletedAndClosed) {
  ServiceHandle second;
  EXPECT_EQ(RegisterService(manager_, record_, second), kServiceExists);
  EXPECT_EQ(second.handle(), 0u);
  EXPECT_EQ(UnregisterService(service_), kSuccess);
  EXPECT_EQ(UnregisterService(service_), kServiceMarkedForDelete);
  service_.Close();
  EXPECT_EQ(OpenServiceByName(manager_, record_.name, kQuery, service_), kServiceNotFound);
  EXPECT_EQ(RegisterService(manager_, record_, service_), kSuccess);
}

TEST_F(OwnService, IsChangedOnlyWithTheRightToIt) {
  ServiceHandle reader;
  ASSERT_EQ(OpenServiceByName(manager_, record_.name, kServiceQueryStatus, reader), kSuccess);
  ServiceSettings settings;
  EXPECT_EQ(QueryServiceSettings(reader, settings), kAccessDenied);
  EXPECT_EQ(UpdateService(reader, record_), kAccessDenied);
  EXPECT_EQ(DescribeService(reader, L"none"), kAccessDenied);
  EXPECT_EQ(LaunchService(reader), kAccessDenied);
  EXPECT_EQ(RequestServiceStop(reader), kAccessDenied);
  EXPECT_EQ(UnregisterService(reader), kAccessDenied);
  reader.Close();
  EXPECT_EQ(QueryServiceSettings(reader, settings), kInvalidHandle);

  ServiceHandle connected;
  ASSERT_EQ(OpenServiceManager(kManagerConnect, connected), kSuccess);
  record_.name = L"KestrelonContract2";
  ServiceHandle second;
  EXPECT_EQ(RegisterService(connected, record_, second), kAccessDenied);
}

// Windows may take ten seconds to find that no manager waits for the process.
TEST(ServiceHost, AProcessStartedByHandIsNoService) {
  EXPECT_EQ(RunAsService(L"KestrelonContract", [] { ADD_FAILURE(); }), kNotStartedByManager);
  EXPECT_EQ(RegisterServiceControls(L"KestrelonContract", [](std::uint32_t) { return 0U; }), 0u);
  EXPECT_EQ(ReportService(0, {.state = kServiceRunning}), kInvalidHandle);
}

}  // namespace

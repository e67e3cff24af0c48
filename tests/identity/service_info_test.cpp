#include "identity/service_info.h"

#include <gtest/gtest.h>

#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

using simulation::TheMachine;

TEST(ServiceCommandLine, NamesItsExecutable) {
  const std::pair<const wchar_t*, const wchar_t*> rows[] = {
      {L"\\SystemRoot\\System32\\svchost.exe -k netsvcs", L"C:\\Windows\\System32\\svchost.exe"},
      {L"%SystemRoot%\\system32\\svchost.exe -k x", L"C:\\Windows\\system32\\svchost.exe"},
      {L"  C:\\Program Files\\X\\y.exe -a ", L"C:\\Program Files\\X\\y.exe"},
      {L"C:\\X\\Y.EXE -a", L"C:\\X\\Y.EXE"},
      {L"system32\\drivers\\x.sys", L"C:\\Windows\\system32\\drivers\\x.sys"},
      {L"\\??\\C:\\x\\y.exe", L"C:\\x\\y.exe"},
      {L"\"C:\\a b\\c.exe\" -k \"q\"", L"C:\\a b\\c.exe"},
      {L"\"C:\\a b\\c.exe -k", L"C:\\a b\\c.exe -k"},
      {L"\"\\??\\C:\\x y\\z.exe\" -a", L"C:\\x y\\z.exe"},
      {L"C:\\x\\y.com -a", L"C:\\x\\y.com"},
      {L"", L""},
      {L"\"", L""},
  };
  for (const auto& [command_line, executable] : rows) {
    EXPECT_EQ(ExecutableOfCommandLine(command_line), executable) << command_line;
  }
}

TEST(ServiceInfo, WithoutSettingsNothingIsKnown) {
  ServiceInfo info;
  info.name = L"before";
  EXPECT_FALSE(ResolveService(L"nosuch", info));
  for (const char* call : {"OpenServiceManager", "OpenServiceByName", "QueryServiceSettings"}) {
    TheMachine().faults.FailOnce(call, platform::kAccessDenied);
    EXPECT_FALSE(ResolveService(L"Dnscache", info)) << call;
  }
  EXPECT_EQ(info.name, L"before");
}

TEST(ServiceInfo, ListLeavesOutWhatCannotBeOpened) {
  const std::size_t all = ListServices().size();
  ASSERT_GE(all, 5u);
  TheMachine().faults.FailNthOf("OpenServiceByName", 2, platform::kAccessDenied);
  EXPECT_EQ(ListServices().size(), all - 1);
  TheMachine().faults.FailOnce("EnumerateServices", platform::kAccessDenied);
  EXPECT_TRUE(ListServices().empty());
}

}  // namespace
}  // namespace kestrelon

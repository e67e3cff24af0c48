// Sessions and the processes in them, by the platform's rules.
#include "platform/sessions.h"

#include <gtest/gtest.h>

#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

constexpr const wchar_t* kProgram = L"C:\\Program Files\\X\\x.exe";
const ProgramStart kStart = {kProgram, L"x -y", L"C:\\", L"winsta0\\default"};
constexpr std::uint32_t kSession = 2;
constexpr std::uint32_t kOtherSession = 5;

Code StartIn(std::uint32_t session, StartedProgram& started) {
  UserToken token;
  UserEnvironment environment;
  if (const Code code = QuerySessionUser(session, token)) return code;
  EXPECT_EQ(MakeUserEnvironment(token, environment), kSuccess);
  return StartAsUser(token, environment, kStart, started);
}

struct UserSessions : testing::Test {
  UserSessions() {
    TheMachine().files.Write(kProgram, "MZ");
    TheMachine().sessions.SignIn(kSession);
    TheMachine().sessions.SignIn(kOtherSession, L"other");
  }
  ~UserSessions() override {
    EXPECT_EQ(TheMachine().sessions.open_handles(), 0u);
    EXPECT_EQ(TheMachine().processes.open_handles(), 0u);
  }

  ProcessTable& processes = TheMachine().processes;
};

TEST_F(UserSessions, EndWithTheirProcesses) {
  StartedProgram ended, other;
  ASSERT_EQ(StartIn(kSession, ended), kSuccess);
  ASSERT_EQ(StartIn(kOtherSession, other), kSuccess);
  UserToken token;
  ASSERT_EQ(QuerySessionUser(kSession, token), kSuccess);
  TheMachine().sessions.SignOut(kSession);
  EXPECT_TRUE(HasProcessEnded(ended.process));
  EXPECT_FALSE(HasProcessEnded(other.process));
  EXPECT_NE(StartAsUser(token, UserEnvironment{}, kStart, ended), kSuccess);
}

TEST_F(UserSessions, GiveAnIdAnewWhenNobodyHoldsItsProcess) {
  StartedProgram first, second;
  ASSERT_EQ(StartIn(kSession, first), kSuccess);
  EXPECT_EQ(EndProcess(first.process, 7), kSuccess);
  EXPECT_EQ(EndProcess(first.process, 8), kAccessDenied);
  std::uint32_t exit_code = 0;
  EXPECT_EQ(ProcessExitCode(first.process, exit_code), kSuccess);
  EXPECT_EQ(exit_code, 7u);
  ASSERT_EQ(StartIn(kSession, second), kSuccess);
  EXPECT_NE(second.process_id, first.process_id);
  first.process.Close();
  EXPECT_EQ(processes.Start(kProgram, kSession), first.process_id);
}

TEST_F(UserSessions, LeaveNothingBehindARestart) {
  StartedProgram started;
  ASSERT_EQ(StartIn(kSession, started), kSuccess);
  TheMachine().Restart();
  EXPECT_FALSE(processes.IsRunning(started.process_id));
  EXPECT_FALSE(HasProcessEnded(started.process));  // the handle is dead
  EXPECT_TRUE(processes.IsRunning(ProcessTable::kOwnProcess));
  EXPECT_EQ(StartIn(kSession, started), 7022u);
}

}  // namespace
}  // namespace simulation

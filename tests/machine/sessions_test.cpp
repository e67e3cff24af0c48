// Sessions and the processes in them, by the platform's rules.
#include "platform/sessions.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/wait.h"
#include "simulation/machine/acting_process.h"
#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

constexpr const wchar_t* kProgram = L"C:\\Program Files\\X\\x.exe";
const ProgramStart kStart = {kProgram, L"x -y", L"C:\\", L"winsta0\\default", kNewProcessGroup};
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

TEST_F(UserSessions, RunProgramsAsTheirUser) {
  StartedProgram started;
  ASSERT_EQ(StartIn(kOtherSession, started), kSuccess);
  const std::optional<SimulatedProcess> process = processes.Find(started.process_id);
  ASSERT_TRUE(process);
  EXPECT_EQ(process->session, kOtherSession);
  EXPECT_EQ(process->user, L"other");
  EXPECT_EQ(process->command_line, L"x -y");
  EXPECT_TRUE(process->environment);
  EXPECT_EQ(processes.Running(L"c:\\program files\\x\\X.EXE", kOtherSession).size(), 1u);
  EXPECT_TRUE(processes.Running(kProgram, kSession).empty());
}

TEST_F(UserSessions, RefuseWhatCantBeStarted) {
  StartedProgram started;
  EXPECT_EQ(StartIn(0, started), 1008u);
  EXPECT_EQ(StartIn(9, started), 7022u);
  TheMachine().token.local_system = false;
  EXPECT_EQ(StartIn(kSession, started), 1314u);
  TheMachine().token.local_system = true;
  TheMachine().files.Remove(kProgram);
  EXPECT_EQ(StartIn(kSession, started), kFileNotFound);
  EXPECT_FALSE(started.process.is_open());
}

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

TEST_F(UserSessions, TellTheTokensOfASplitPairApart) {
  TheMachine().sessions.SetElevation(kSession, kElevationLimited);
  UserToken limited, full, other, none;
  ASSERT_EQ(QuerySessionUser(kSession, limited), kSuccess);
  ASSERT_EQ(QueryLinkedToken(limited, full), kSuccess);
  ASSERT_EQ(QuerySessionUser(kOtherSession, other), kSuccess);
  EXPECT_EQ(QueryLinkedToken(other, none), 1312u);
  const std::pair<const UserToken*, std::uint32_t> rows[] = {
      {&limited, kElevationLimited}, {&full, kElevationFull}, {&other, kElevationDefault}};
  for (const auto& [token, expected] : rows) {
    std::uint32_t type = 0;
    StartedProgram started;
    EXPECT_EQ(QueryTokenElevation(*token, type), kSuccess);
    EXPECT_EQ(type, expected);
    ASSERT_EQ(StartAsUser(*token, UserEnvironment{}, kStart, started), kSuccess);
    EXPECT_EQ(processes.Find(started.process_id)->elevation, expected);
  }
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

using Programs = UserSessions;

TEST_F(Programs, DoAtTheirStartWhatTheyWereToldTo) {
  std::uint32_t acting = 0;
  processes.OnStart(L"c:\\PROGRAM FILES\\x\\x.exe", [&](std::uint32_t id) {
    acting = ActingProcess();
    processes.End(id, 5);
  });
  StartedProgram started;
  ASSERT_EQ(StartProgram(kStart, started), kSuccess);
  EXPECT_EQ(acting, started.process_id);
  EXPECT_EQ(ActingProcess(), ProcessTable::kOwnProcess);
  const std::optional<SimulatedProcess> process = processes.Find(started.process_id);
  EXPECT_TRUE(process->session == 0 && process->user.empty() && process->exit_code == 5);
  EXPECT_EQ(process->command_line, kStart.command_line);
  EXPECT_EQ(process->flags, kStart.flags);
}

TEST_F(Programs, AreAwaitedInTheTimeOfTheClock) {
  Clock& clock = TheMachine().clock;
  StartedProgram started;
  ASSERT_EQ(StartProgram(kStart, started), kSuccess);
  EXPECT_EQ(AwaitProcess(started.process, 1'800'000), kWaitTimeout);
  EXPECT_EQ(clock.Tick(), kFirstTick + 1'800'000);
  std::thread end;
  for (const bool forever : {false, true}) {
    clock.Run();
    TheMachine().faults.RunBefore(
        "AwaitProcess", [&] { end = std::thread([&] { processes.End(started.process_id, 0); }); });
    EXPECT_EQ(AwaitProcess(started.process, forever ? kWaitForever : 60'000), kSuccess);
    end.join();
    started.process.Close();
    ASSERT_EQ(StartProgram(kStart, started), kSuccess);
  }
}

TEST_F(Programs, StayInAJobThatLetsNoneOut) {
  StartedProgram started;
  ProgramStart start = kStart;
  start.flags = kBreakawayFromJob | kNoWindow;
  EXPECT_EQ(StartProgram(start, started), kSuccess);
  processes.ForbidBreakaway(true);
  started.process.Close();
  EXPECT_EQ(StartProgram(start, started), kAccessDenied);
  EXPECT_FALSE(started.process.is_open());
  start.flags = kNoWindow;
  EXPECT_EQ(StartProgram(start, started), kSuccess);
}

}  // namespace
}  // namespace simulation

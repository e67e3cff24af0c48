// What each pass of the supervisor makes of what happened before it.
#include "modules/supervise_modules.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>

#include "modules/module_pipe.h"
#include "platform/system_text.h"
#include "simulation/machine/machine.h"
#include "tests/modules/module_world.h"

namespace kestrelon {
namespace {

using simulation::TheMachine;
using test::kModuleFile;

const std::string kException = "Windows Defender Firewall exception for module lan-messages ";
const std::string kOn = kException + "added\nModule pipe opened\n";
const std::string kOff = kException + "removed\nModule pipe closed\n";
const std::string kStarted = "Module lan-messages started in session 1 (process #)\n";
const std::string kTakenOver =
    "Module lan-messages already runs in session 1 (process #) - taken over\n";
const std::string kStopped = "Module lan-messages stopped in session 1 (turned off)\n";
const std::string kFailed = "Module lan-messages could not be started in session 1: ";
const std::string kDenied = "0x00000005 - Access is denied.\n";
const std::string kEnded = "Module lan-messages ended unexpectedly in session 1 (exit code 0x";
const std::string kClosed = "Module lan-messages closed by the user in session 1\n";
const std::string kGivenUp =
    "Module lan-messages ended 3 times within 10 minutes - not started again in session 1 until "
    "the next sign-in\n";
std::string In2(std::string message) {
  return message.replace(message.find("session 1"), 9, "session 2");
}

Config config;  // with the module approved by the user in session 1

class SuperviseModulesTest : public testing::Test {
 protected:
  SuperviseModulesTest() {
    TheMachine().files.MakeDirectories(L"C:\\ProgramData\\Kestrelon");
    test::InstallModule();
    TheMachine().sessions.SignIn(1);
    config.modules = {test::ApprovedModule()};
  }
  ~SuperviseModulesTest() override {
    CloseModulePipe();
    DropModuleProcesses();
    EXPECT_EQ(TheMachine().processes.open_handles() + TheMachine().sessions.open_handles(), 0u);
  }
};

// The lines of a log without their times.
std::string Messages(std::string_view log) {
  constexpr std::size_t kTimeLength = std::string_view("2026-11-21 12:00:00  ").size();
  std::string messages;
  for (std::size_t end = log.find("\r\n"); end != log.npos; end = log.find("\r\n")) {
    messages.append(log.substr(kTimeLength, end - kTimeLength)).append("\n");
    log.remove_prefix(end + 2);
  }
  return messages;
}

// The same text with "#" in place of each process id.
std::string WithoutProcessIds(std::string text) {
  constexpr std::string_view kLabel = "process ";
  for (std::size_t at = text.find(kLabel); at != text.npos; at = text.find(kLabel, at)) {
    at += kLabel.size();
    text.replace(at, text.find_first_not_of("0123456789", at) - at, "#");
  }
  return text;
}

// What it logs, without times.
std::string Pass() {
  const std::wstring log = L"C:\\ProgramData\\Kestrelon\\service.log";
  TheMachine().files.Remove(log);
  const std::uint64_t begin = TheMachine().clock.Tick();
  GuardLock lock(ConfigGuard);
  SuperviseModules(config);
  EXPECT_EQ(TheMachine().clock.Tick(), begin) << "it waited";
  return Messages(TheMachine().files.Read(log).value_or(""));
}

// The session of each process of the module.
std::string Running() {
  std::string sessions;
  for (std::uint32_t session = 0; session < 4; ++session) {
    const std::size_t count = TheMachine().processes.Running(kModuleFile, session).size();
    sessions.append(count, static_cast<char>('0' + session));
  }
  return sessions;
}

using Change = std::function<void()>;
const Change kNothing = [] {};
Change operator+(const Change& first, const Change& second) {
  return [=] { first(), second(); };
}
Change TurnedOn(bool on) {
  return [=] { config.modules[0].enabled = on; };
}
Change SignIn(std::uint32_t session) {
  return [=] { TheMachine().sessions.SignIn(session); };
}
const Change kSignOut = [] { TheMachine().sessions.SignOut(1); };
Change Ends(std::uint32_t exit_code) {
  return [=] {
    simulation::ProcessTable& processes = TheMachine().processes;
    processes.End(processes.Running(kModuleFile, 1).at(0), exit_code);
  };
}
Change Runs(const std::wstring& path, std::uint32_t session) {
  return [=] { TheMachine().processes.Start(path, session); };
}
Change Fails(const char* call) {
  return [=] { TheMachine().faults.FailOnce(call, platform::kAccessDenied); };
}

// What happens, what the next pass logs, and the sessions of the processes that run then.
struct Step {
  Change before;
  std::string log, running;
};
struct Course {
  std::string claim;
  std::vector<Step> steps;

  friend void PrintTo(const Course& course, std::ostream* out) { *out << course.claim; }
};
Step Later(std::uint64_t milliseconds, const Step& step) {
  return {[=] { TheMachine().clock.Advance(milliseconds); } + step.before, step.log, step.running};
}

const Step kFirst = {kNothing, kOn + kStarted, "1"};
const Step kNoToken = {
    [] { TheMachine().faults.FailNthOf("QuerySessionUser", 2, platform::kAccessDenied); },
    kOn + kFailed + "no user token: " + kDenied, ""};
const Step kStart = {kNothing, kStarted, "1"};
const Step kFails = {Fails("StartAsUser"), kFailed + kDenied, ""};
const Step kCrash = {Ends(0), kEnded + "00000000)\n" + kStarted, "1"};
const Step kLastCrash = {Ends(0xC000001D), kEnded + "C000001D)\n" + kGivenUp, ""};
const Step kClose = {Ends(0x4B530000), kClosed, ""};
const Step kEndUnread = {kClose.before + Fails("ProcessExitCode"), kCrash.log, "1"};
const Step kTurnOff = {TurnedOn(false), kOff + kStopped, ""};
const Step kTurnOn = {TurnedOn(true), kOn + kStarted, "1"};
const Step kTurnOffUnseen = {TurnedOn(false), kOff, ""};
const Step kTurnOnUnseen = {TurnedOn(true), kOn, ""};
const Step kInTwo = {SignIn(2), In2(kStarted), "2"};
const Step kNoneListed = {Fails("ListSessions"), "", ""};
const Step kStop = {kClose.before + [] { Core.Stopping = true; }, "", ""};
const Step kFirstAgain = {Ends(0), kCrash.log, "12"};
const Step kBackIn = {kSignOut + [] { (void)Pass(); } + SignIn(1), kStarted, "12"};

const Course kCourses[] = {
    {"runs in every session with a user",
     {{kSignOut + SignIn(0) + [] { TheMachine().sessions.SetState(3, 0); }, kOn, ""},
      {SignIn(1) + SignIn(2), kStarted + In2(kStarted), "12"},
      {TurnedOn(false), kOff + kStopped + In2(kStopped), ""},
      {TurnedOn(true), kOn + kStarted + In2(kStarted), "12"},
      {[] { TheMachine().sessions.SetState(1, 4); }, "", "12"},
      {Ends(0), kEnded + "00000000)\n", "2"}}},
    {"being turned off is no crash, ending without a readable code is",
     {kFirst, kTurnOff, kTurnOn, kTurnOff, kTurnOn, kCrash, kEndUnread, kLastCrash}},
    {"runs only as its own file, without which its exception has no known name",
     {kFirst,
      {[] { TheMachine().files.Write(kModuleFile, "other"); }, kOff + kStopped, ""},
      {[] { test::InstallModule(); }, kOn + kStarted, "1"},
      {[] { TheMachine().files.Remove(kModuleFile); }, "Module pipe closed\n" + kStopped, ""}}},
    {"stays closed until the next sign-in",
     {kFirst, kClose, kTurnOffUnseen, kTurnOnUnseen, kInTwo, kBackIn}},
    {"is given up in its session at the third end within ten minutes, until the next sign-in",
     {kFirst, kCrash, Later(300'000, kCrash), Later(300'000, kLastCrash), kTurnOffUnseen,
      kTurnOnUnseen, kInTwo, kBackIn, kFirstAgain}},
    {"goes on when the first of three ends is older",
     {kFirst, kCrash, Later(300'000, kCrash), Later(300'001, kCrash), kLastCrash}},
    {"is given up at the third failed start however old the others are",
     {kNoToken, Later(700'000, kFails), Later(700'000, kFails), kInTwo, kBackIn}},
    {"an end drops failed starts that are older",
     {kNoToken, kFails, Later(600'000, kStart), Later(1, kCrash), kCrash, kLastCrash}},
    {"takes over its own file in its own session",
     {{Runs(L"C:\\KSMessages.exe", 1) + Runs(kModuleFile, 3), kOn + kStarted, "13"},
      {[] { DropModuleProcesses(); }, kTakenOver, "13"},
      {kClose.before, kClosed, "3"}}},
    {"takes over the first that it can open, whatever the letter case, or starts one",
     {{Runs(kModuleFile, 1) + Runs(platform::LowerCase(kModuleFile), 1) + Fails("OpenProcessById"),
       kOn + kTakenOver, "11"},
      {[] { DropModuleProcesses(); } + Fails("ListProcesses"), kStarted, "111"},
      {TurnedOn(false), kOff + kStopped, "11"}}},
    {"goes on and forgets when no session is known, and does nothing at the stop",
     {kFirst, {Fails("ListSessions"), "", "1"}, kClose, kNoneListed, kStart, kStop}},
    {"asks the firewall once for each change",
     {{[] { TheMachine().windows_firewall.SetAvailable(false); },
       kException + "added - FAILED\nModule pipe opened\n" + kStarted, "1"},
      {[] { TheMachine().windows_firewall.SetAvailable(true); }, "", "1"},
      kTurnOff}},
};

class SuperviseModulesIn : public SuperviseModulesTest,
                           public testing::WithParamInterface<Course> {};

TEST_P(SuperviseModulesIn, EachPass) {
  for (const Step& step : GetParam().steps) {
    step.before();
    const std::string log = WithoutProcessIds(Pass());
    EXPECT_EQ(log + Running(), step.log + step.running) << &step - GetParam().steps.data();
  }
}
INSTANTIATE_TEST_SUITE_P(Course, SuperviseModulesIn, testing::ValuesIn(kCourses));

TEST_F(SuperviseModulesTest, StartsAModuleAsItsUserAndEndsIt) {
  TheMachine().sessions.SignIn(2, L"second");
  TheMachine().faults.FailOnce("MakeUserEnvironment", platform::kAccessDenied);
  const std::string log = Pass();
  for (const std::uint32_t session : {1u, 2u}) {
    GuardLock lock(ModuleGuard);
    const ModuleProcess& record = ModuleProcesses.at(session - 1);
    const simulation::SimulatedProcess process = *TheMachine().processes.Find(record.process_id);
    EXPECT_EQ(process.session, session);
    EXPECT_EQ(process.command_line, L"\"" + std::wstring(kModuleFile) + L"\" --from-service");
    EXPECT_EQ(process.directory, L"C:\\Program Files\\Kestrelon\\modules\\lan-messages");
    EXPECT_EQ(process.desktop, L"winsta0\\default");
    EXPECT_EQ(process.flags, 0x600u);
    EXPECT_EQ(process.user, session == 1 ? L"user" : L"second");
    EXPECT_EQ(process.environment, session == 2) << "one that can't be made is done without";
    EXPECT_NE(log.find("(process " + std::to_string(process.id) + ")"), std::string::npos) << log;
    EXPECT_EQ(record.permissions, std::vector<std::wstring>{L"status.read"});
  }
  const std::uint32_t ended = TheMachine().processes.Running(kModuleFile, 1).at(0);
  config.modules.clear();
  (void)Pass();
  EXPECT_EQ(TheMachine().processes.Find(ended)->exit_code, 1u);
}

}  // namespace
}  // namespace kestrelon

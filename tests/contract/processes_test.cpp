// What the process uses, and processes and users as others see them.
#include "platform/processes.h"

#include <gtest/gtest.h>

#include "platform/paths.h"
#include "platform/system_text.h"
#include "tests/contract/scratch.h"

namespace {

using namespace kestrelon::platform;

constexpr std::uint64_t kMebibyte = 1U << 20U;

TEST(OwnMemoryUse, TellsTheWorkingSet) {
  MemoryUse use;
  ASSERT_EQ(OwnMemoryUse(use), kSuccess);
  EXPECT_GT(use.working_set_bytes, kMebibyte);
}

TEST(OwnMemoryUse, TellsThePrivateBytes) {
  MemoryUse use;
  ASSERT_EQ(OwnMemoryUse(use), kSuccess);
  EXPECT_GT(use.private_bytes, kMebibyte / 4);
}

TEST(OwnHandleCount, TellsTheOpenHandles) {
  std::uint32_t count = 0;
  ASSERT_EQ(OwnHandleCount(count), kSuccess);
  EXPECT_GT(count, 0u);
}

constexpr std::uint32_t kNoProcess = 0x7FFFFFF0;
constexpr std::uint32_t kStillRunning = 259;

// A process of this case's program, found as anybody would find it.
std::uint32_t ListedProcess() {
  std::wstring file;
  EXPECT_EQ(ExecutableFile(file), kSuccess);
  std::vector<RunningProcess> listed;
  EXPECT_EQ(ListProcesses(listed), kSuccess);
  for (const RunningProcess& running : listed) {
    if (!EqualIgnoringCase(running.executable, file.substr(file.rfind(L'\\') + 1))) continue;
    Process process;
    std::wstring image;
    if (OpenProcessById(running.id, kProcessQueryLimited, process) != kSuccess) continue;
    EXPECT_EQ(ProcessImage(process, image), kSuccess);
    if (EqualIgnoringCase(image, file)) return running.id;
  }
  return 0;
}

TEST(Processes, AreListedByTheNamesOfTheirFiles) {
  const std::uint32_t id = ListedProcess();
  ASSERT_NE(id, 0u);
  std::uint32_t session = 0xFFFFFFFF;
  EXPECT_EQ(SessionOfProcess(id, session), kSuccess);
  EXPECT_NE(session, 0xFFFFFFFF);
}

TEST(Processes, AllowWhatTheyWereOpenedFor) {
  Process process;
  ASSERT_EQ(OpenProcessById(ListedProcess(), kProcessSynchronize, process), kSuccess);
  std::wstring image = L"unchanged";
  EXPECT_EQ(ProcessImage(process, image), kAccessDenied);
  EXPECT_EQ(image, L"unchanged");
  EXPECT_EQ(EndProcess(process, 1), kAccessDenied);
  ASSERT_EQ(OpenProcessById(ListedProcess(), kProcessQueryLimited, process), kSuccess);
  EXPECT_EQ(AwaitProcess(process, 0), kAccessDenied);
}

TEST(Processes, OfUnknownIdsAreNone) {
  Process process;
  std::uint32_t session = 0;
  EXPECT_EQ(OpenProcessById(kNoProcess, kProcessQueryLimited, process), kInvalidParameter);
  EXPECT_FALSE(process.is_open());
  EXPECT_EQ(SessionOfProcess(kNoProcess, session), kInvalidParameter);
}

// This case's own program under another name, running other cases for minutes.
ProgramStart LongRun() {
  ProgramStart start;
  EXPECT_EQ(ExecutableFile(start.application), kSuccess);
  // On the simulated machine the program has no file unless it is given one.
  if (!contract::Exists(start.application)) {
    const std::size_t name = start.application.rfind(L'\\');
    EXPECT_EQ(MakeDirectory(start.application.substr(0, name)), kSuccess);
    contract::WriteWhole(start.application, "MZ");
  }
  start.command_line = L"x --gtest_filter=Clock.* --gtest_repeat=1000";
  start.directory = L"C:\\";
  start.flags = kNoWindow;
  return start;
}

TEST(StartProgram, StartsWhatIsAwaitedUntilItEnds) {
  StartedProgram started;
  ASSERT_EQ(StartProgram(LongRun(), started), kSuccess);
  std::uint32_t exit_code = 0;
  EXPECT_EQ(AwaitProcess(started.process, 50), kWaitTimeout);
  EXPECT_FALSE(HasProcessEnded(started.process));
  EXPECT_EQ(ProcessExitCode(started.process, exit_code), kSuccess);
  EXPECT_EQ(exit_code, kStillRunning);
  EXPECT_EQ(EndProcess(started.process, 9001), kSuccess);
  EXPECT_EQ(AwaitProcess(started.process, 60'000), kSuccess);
  EXPECT_EQ(ProcessExitCode(started.process, exit_code), kSuccess);
  EXPECT_EQ(exit_code, 9001u);
}

TEST(StartProgram, NeedsAFileAndADirectory) {
  StartedProgram started;
  ProgramStart no_file = LongRun();
  no_file.application += L".none";
  EXPECT_EQ(StartProgram(no_file, started), kFileNotFound);
  ProgramStart no_directory = LongRun();
  no_directory.directory = L"C:\\No such directory";
  EXPECT_EQ(StartProgram(no_directory, started), 267u);
  EXPECT_FALSE(started.process.is_open());
}

}  // namespace

// What the process uses, and processes and users as others see them.
#include "platform/processes.h"

#include <gtest/gtest.h>

#include "platform/paths.h"
#include "platform/sessions.h"
#include "platform/system_text.h"

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

TEST(Processes, TellThatTheyRun) {
  Process process;
  ASSERT_EQ(OpenProcessById(ListedProcess(), kProcessQueryLimited | kProcessSynchronize, process),
            kSuccess);
  std::uint32_t exit_code = 0;
  EXPECT_FALSE(HasProcessEnded(process));
  EXPECT_EQ(ProcessExitCode(process, exit_code), kSuccess);
  EXPECT_EQ(exit_code, kStillRunning);
}

TEST(Processes, AllowWhatTheyWereOpenedFor) {
  Process process;
  ASSERT_EQ(OpenProcessById(ListedProcess(), kProcessSynchronize, process), kSuccess);
  std::wstring image = L"unchanged";
  EXPECT_EQ(ProcessImage(process, image), kAccessDenied);
  EXPECT_EQ(image, L"unchanged");
  EXPECT_EQ(EndProcess(process, 1), kAccessDenied);
}

TEST(Processes, OfUnknownIdsAreNone) {
  Process process;
  std::uint32_t session = 0;
  EXPECT_EQ(OpenProcessById(kNoProcess, kProcessQueryLimited, process), kInvalidParameter);
  EXPECT_FALSE(process.is_open());
  EXPECT_EQ(SessionOfProcess(kNoProcess, session), kInvalidParameter);
}

TEST(StartAsUser, NeedsAUser) {
  StartedProgram started;
  UserEnvironment environment;
  std::wstring file;
  ASSERT_EQ(ExecutableFile(file), kSuccess);
  const ProgramStart start = {file, L"x --gtest_list_tests", L"C:\\", L"winsta0\\default"};
  EXPECT_EQ(MakeUserEnvironment(UserToken{}, environment), kInvalidHandle);
  EXPECT_EQ(StartAsUser(UserToken{}, environment, start, started), kInvalidHandle);
  EXPECT_FALSE(started.process.is_open());
}

}  // namespace

// The product's version resource, of the executable beside this program, and a process's own
// surroundings.
#include <windows.h>

#include <gtest/gtest.h>

#include "platform/console.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/process_hardening.h"
#include "platform/resources.h"
#include "platform/sessions.h"
#include "tests/contract/scratch.h"

namespace {

using namespace kestrelon::platform;

TEST(VersionResource, NamesTheProductAndItsVersion) {
  std::wstring path;
  ASSERT_EQ(ExecutableFile(path), kSuccess);
  VersionBlock block;
  path.replace(path.rfind(L'\\') + 1, std::wstring::npos, L"KestrelonSvc.exe");
  ASSERT_EQ(LoadVersionBlock(path, block), kSuccess);
  std::vector<std::uint8_t> translation;
  ASSERT_TRUE(VersionBytes(block, L"\\VarFileInfo\\Translation", translation));
  EXPECT_EQ(translation, (std::vector<std::uint8_t>{0x09, 0x04, 0xB0, 0x04}));
  const std::pair<std::wstring, const wchar_t*> values[] = {
      {L"ProductName", L"Kestrelon"},
      {L"OriginalFilename", L"KestrelonSvc.exe"},
      {L"ProductVersion", L"1.2.2"},
      {L"FileVersion", L"1.2.2.48"},
  };
  for (const auto& [name, expected] : values) {
    std::wstring text;
    EXPECT_TRUE(VersionText(block, L"\\StringFileInfo\\040904b0\\" + name, text));
    EXPECT_EQ(text, expected);
  }
  std::wstring text = L"unchanged";
  EXPECT_FALSE(VersionText(block, L"\\StringFileInfo\\040904b0\\None", text));
  EXPECT_EQ(text, L"unchanged");
}

TEST(StandardOutput, TakesTextAsUtf8) {
  File file;
  const std::wstring path = contract::FreshDirectory() + L"\\output.txt";
  ASSERT_EQ(OpenFile(path, kGenericWrite, kShareAll, kCreateAlways, kNormalFile, file), kSuccess);
  const HANDLE before = GetStdHandle(STD_OUTPUT_HANDLE);
  SetStdHandle(STD_OUTPUT_HANDLE, reinterpret_cast<HANDLE>(file.handle()));
  WriteStandardOutput(L"\u00e9\u20ac\U0001F600\n");
  SetStdHandle(STD_OUTPUT_HANDLE, before);
  ASSERT_EQ(OpenFile(path, kGenericRead, kShareAll, kOpenExisting, kNormalFile, file), kSuccess);
  char bytes[32] = {};
  std::uint32_t read = 0;
  ASSERT_EQ(ReadFileBytes(file, bytes, sizeof bytes, read), kSuccess);
  EXPECT_EQ(std::string(bytes, read), "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\n");
}

// This program once more, to tell its cases and end.
ProgramStart OwnProgram() {
  ProgramStart start;
  EXPECT_EQ(ExecutableFile(start.application), kSuccess);
  start.command_line = L"x --gtest_list_tests";
  start.directory = L"C:\\";
  start.desktop = L"winsta0\\default";
  start.flags = kNoWindow;
  return start;
}

UserToken OwnToken() {
  HANDLE own = nullptr;
  EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &own));
  UserToken token;
  token.Adopt(reinterpret_cast<std::uintptr_t>(own));
  return token;
}

// Wine gives every process the full token of a split pair; its linked token can start programs.
TEST(LinkedToken, IsTheOtherOfThePairAndStartsPrograms) {
  UserToken token = OwnToken();
  UserToken linked;
  std::uint32_t type = 0;
  std::uint32_t linked_type = 0;
  ASSERT_EQ(QueryTokenElevation(token, type), kSuccess);
  EXPECT_EQ(type, static_cast<std::uint32_t>(TokenElevationTypeFull));
  ASSERT_EQ(QueryLinkedToken(token, linked), kSuccess);
  EXPECT_EQ(QueryTokenElevation(linked, linked_type), kSuccess);
  EXPECT_EQ(linked_type, kElevationLimited);
  for (const UserToken* user : {&token, &linked}) {
    StartedProgram started;
    ASSERT_EQ(StartAsUser(*user, UserEnvironment{}, OwnProgram(), started), kSuccess);
    EXPECT_EQ(AwaitProcess(started.process, 60'000), kSuccess);
  }
}

// Once this process has closed its end that is written to, only a program that took it along could
// keep the pipe open.
TEST(StartedProgram, InheritsNoHandle) {
  SECURITY_ATTRIBUTES inheritable{};
  inheritable.nLength = sizeof inheritable;
  inheritable.bInheritHandle = TRUE;
  HANDLE read = nullptr;
  HANDLE written = nullptr;
  ASSERT_TRUE(CreatePipe(&read, &written, &inheritable, 0));
  ProgramStart start = OwnProgram();
  start.flags |= CREATE_SUSPENDED;
  StartedProgram as_self, as_user;
  ASSERT_EQ(StartProgram(start, as_self), kSuccess);
  ASSERT_EQ(StartAsUser(OwnToken(), UserEnvironment{}, start, as_user), kSuccess);
  CloseHandle(written);
  EXPECT_FALSE(PeekNamedPipe(read, nullptr, 0, nullptr, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BROKEN_PIPE));
  CloseHandle(read);
  for (const StartedProgram* started : {&as_self, &as_user}) {
    EXPECT_FALSE(HasProcessEnded(started->process));
    EXPECT_EQ(EndProcess(started->process, 0), kSuccess);
  }
}

TEST(HardenProcess, TurnsOnWhatThePlatformThenTells) {
  ASSERT_EQ(HardenProcess(), kSuccess);
  constexpr std::pair<PROCESS_MITIGATION_POLICY, DWORD> kPolicies[] = {
      {ProcessExtensionPointDisablePolicy, 0x1},
      {ProcessImageLoadPolicy, 0x7},
      {ProcessASLRPolicy, 0x7},  // two of them by the executable's own headers
      {ProcessFontDisablePolicy, 0x1},
  };
  for (const auto& [policy, expected] : kPolicies) {
    DWORD flags = 0;
    ASSERT_TRUE(GetProcessMitigationPolicy(GetCurrentProcess(), policy, &flags, sizeof flags));
    EXPECT_EQ(flags & expected, expected) << "policy " << policy;
  }
}

}  // namespace

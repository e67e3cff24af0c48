// Access lists: what they read, and what they deny to a user without elevation.
#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include "base/text.h"
#include "config/config_store.h"
#include "control/pipe_server.h"
#include "core/data_dir.h"
#include "platform/files.h"
#include "platform/pipes.h"
#include "tools/check/cases.h"
#include "tools/check/system_facts.h"

namespace kestrelon::check {
namespace {

using Access = InstalledService;

// While it lives, this thread acts as its user would without elevation: the membership in
// Administrators counts for denials alone.
class WithoutElevation {
 public:
  WithoutElevation() {
    HANDLE own = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &own)) return;
    HANDLE limited = nullptr;
    if (CreateRestrictedToken(own, LUA_TOKEN, 0, nullptr, 0, nullptr, 0, nullptr, &limited)) {
      acts_ = ImpersonateLoggedOnUser(limited);
      CloseHandle(limited);
    }
    CloseHandle(own);
  }
  ~WithoutElevation() { RevertToSelf(); }
  WithoutElevation(const WithoutElevation&) = delete;
  WithoutElevation& operator=(const WithoutElevation&) = delete;

  bool acts() const { return acts_; }

 private:
  bool acts_ = false;
};

// The access list of an object as text, without owner and group.
std::string AccessList(PSECURITY_DESCRIPTOR descriptor) {
  wchar_t* text = nullptr;
  if (!ConvertSecurityDescriptorToStringSecurityDescriptorW(
          descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr)) {
    return "unreadable";
  }
  const std::string list = Utf8FromWide(text);
  LocalFree(text);
  return list;
}

std::string AccessListOfFile(std::wstring path) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                            nullptr, nullptr, nullptr, &descriptor) != ERROR_SUCCESS) {
    return "unreadable";
  }
  const std::string list = AccessList(descriptor);
  LocalFree(descriptor);
  return list;
}

std::string AccessListOfPipe(const platform::Pipe& pipe) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetSecurityInfo(reinterpret_cast<HANDLE>(pipe.handle()), SE_KERNEL_OBJECT,
                      DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr, nullptr,
                      &descriptor) != ERROR_SUCCESS) {
    return "unreadable";
  }
  const std::string list = AccessList(descriptor);
  LocalFree(descriptor);
  return list;
}

TEST_F(Access, ToTheDataDirectoryIsForSystemAndAdministratorsAlone) {
  const std::string list = AccessListOfFile(DataDir());
  EXPECT_TRUE(list.starts_with("D:P")) << list;
  EXPECT_TRUE(list.ends_with("(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)")) << list;
  EXPECT_EQ(std::ranges::count(list, '('), 2) << list;
}

TEST_F(Access, ToTheControlPipeIsForSystemAndAdministratorsAlone) {
  ASSERT_TRUE(Ask(kStatus).Get("ok").boolean());
  platform::Pipe pipe;
  ASSERT_TRUE(Within(
      5, [&] { return platform::OpenPipe(kControlPipeName, true, pipe) == platform::kSuccess; }));
  const std::string list = AccessListOfPipe(pipe);
  EXPECT_TRUE(list.ends_with("(A;;FA;;;SY)(A;;FA;;;BA)")) << list;
  EXPECT_EQ(std::ranges::count(list, '('), 2) << list;
}

TEST_F(Access, IsDeniedToAUserWithoutElevation) {
  if (RunsAsLocalSystem()) GTEST_SKIP() << "this check runs as LocalSystem, whom nothing is denied";
  ASSERT_TRUE(Ask(kStatus).Get("ok").boolean());
  const WithoutElevation user;
  ASSERT_TRUE(user.acts());
  platform::Pipe pipe;
  platform::File file;
  EXPECT_EQ(platform::OpenPipe(kControlPipeName, true, pipe), platform::kAccessDenied);
  EXPECT_EQ(platform::OpenFile(ConfigPath(), platform::kGenericRead, platform::kShareAll,
                               platform::kOpenExisting, platform::kNormalFile, file),
            platform::kAccessDenied);
  EXPECT_EQ(platform::MakeDirectory(DataDir() + L"\\by a user"), platform::kAccessDenied);
}

}  // namespace
}  // namespace kestrelon::check

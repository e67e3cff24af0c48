#include "platform/security.h"

#include "platform/windows/owned.h"
#include "platform/windows/system_library.h"

#include <aclapi.h>
#include <sddl.h>

namespace kestrelon::platform {
namespace {

constexpr Code kInvalidSid = ERROR_INVALID_SID;
constexpr std::size_t kSidHeadSize = 8;  // revision, count of parts and authority

void FreeSidMemory(PSID sid) {
  FreeSid(sid);
}

Sid BytesOfSid(PSID sid) {
  const auto* const bytes = static_cast<const std::uint8_t*>(sid);
  return {bytes, bytes + GetLengthSid(sid)};
}

Code TextOfSid(PSID sid, std::wstring& text) {
  LocalMemory<LPWSTR> buffer;
  if (!ConvertSidToStringSidW(sid, buffer.Receive())) return GetLastError();
  text = buffer.get();
  return kSuccess;
}

Code OpenProcessTokenForQuery(KernelHandle& token) {
  const BOOL opened = OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Receive());
  return opened ? kSuccess : GetLastError();
}

}  // namespace

Code DescriptorFromText(const std::wstring& text, SecurityDescriptor& descriptor) {
  LocalMemory<PSECURITY_DESCRIPTOR> buffer;
  ULONG size = 0;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1,
                                                            buffer.Receive(), &size)) {
    return GetLastError();
  }
  const auto* const bytes = static_cast<const std::uint8_t*>(buffer.get());
  descriptor.assign(bytes, bytes + size);
  return kSuccess;
}

Code SidFromText(const std::wstring& text, Sid& sid) {
  LocalMemory<PSID> buffer;
  if (!ConvertStringSidToSidW(text.c_str(), buffer.Receive())) return GetLastError();
  sid = BytesOfSid(buffer.get());
  return kSuccess;
}

Code SidText(std::span<const std::uint8_t> sid, std::wstring& text) {
  // A SID tells its own size: what is shorter must not reach the platform, which would read on.
  if (sid.size() < kSidHeadSize || sid.size() < GetSidLengthRequired(sid[1])) return kInvalidSid;
  return TextOfSid(const_cast<std::uint8_t*>(sid.data()), text);
}

Code SidOfAccount(const std::wstring& name, std::wstring& sid_text) {
  DWORD sid_size = 0;
  DWORD domain_size = 0;
  SID_NAME_USE use{};
  LookupAccountNameW(nullptr, name.c_str(), nullptr, &sid_size, nullptr, &domain_size, &use);
  const Code probe = GetLastError();
  if (probe != kInsufficientBuffer) return probe;
  std::vector<std::uint8_t> sid(sid_size);
  std::wstring domain(domain_size, L'\0');
  if (!LookupAccountNameW(nullptr, name.c_str(), sid.data(), &sid_size, domain.data(), &domain_size,
                          &use)) {
    return GetLastError();
  }
  return TextOfSid(sid.data(), sid_text);
}

Code SidOfPackage(const std::wstring& name, std::wstring& sid_text) {
  const SystemFunction<HRESULT WINAPI(PCWSTR, PSID*)> derive(
      L"userenv.dll", "DeriveAppContainerSidFromAppContainerName");
  if (!derive) return kProcedureNotFound;
  Owned<PSID, FreeSidMemory> sid;
  const HRESULT result = derive(name.c_str(), sid.Receive());
  if (FAILED(result)) return static_cast<Code>(result);
  return TextOfSid(sid.get(), sid_text);
}

Code ProtectFile(const std::wstring& path, const SecurityDescriptor& descriptor) {
  if (descriptor.empty()) return kInvalidSecurityDescriptor;
  auto* const native = const_cast<std::uint8_t*>(descriptor.data());
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  PACL dacl = nullptr;
  if (!GetSecurityDescriptorDacl(native, &present, &dacl, &defaulted)) return GetLastError();
  // Applying the null DACL would open the file to everybody.
  if (!present || dacl == nullptr) return kInvalidSecurityDescriptor;
  return SetNamedSecurityInfoW(const_cast<LPWSTR>(path.c_str()), SE_FILE_OBJECT,
                               DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                               nullptr, nullptr, dacl, nullptr);
}

Code IsProcessElevated(bool& elevated) {
  KernelHandle token;
  if (const Code code = OpenProcessTokenForQuery(token); code != kSuccess) return code;
  TOKEN_ELEVATION elevation{};
  DWORD size = 0;
  if (!GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof elevation, &size)) {
    return GetLastError();
  }
  elevated = elevation.TokenIsElevated != 0;
  return kSuccess;
}

Code IsProcessLocalSystem(bool& local_system) {
  KernelHandle token;
  if (const Code code = OpenProcessTokenForQuery(token); code != kSuccess) return code;
  struct {
    TOKEN_USER user;
    std::uint8_t sid[SECURITY_MAX_SID_SIZE];
  } information{};
  DWORD size = 0;
  if (!GetTokenInformation(token.get(), TokenUser, &information, sizeof information, &size)) {
    return GetLastError();
  }
  local_system = IsWellKnownSid(information.user.User.Sid, WinLocalSystemSid) != FALSE;
  return kSuccess;
}

}  // namespace kestrelon::platform

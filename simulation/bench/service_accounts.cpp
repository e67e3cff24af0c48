// What Wine lacks of the accounts of services, for the program that loads the bench's library: the
// name "NT SERVICE\<service>" and the type of a service's SID. Both are answered as Windows answers
// them, the type from where Windows keeps it (ServiceSidType in the service's key). The program's
// own imports of the two functions are led here; nothing else in its process notices.
#include <windows.h>

#include <bcrypt.h>
#include <sddl.h>

#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

namespace simulation {
namespace {

constexpr wchar_t kServicesKey[] = L"SYSTEM\\CurrentControlSet\\Services\\";
constexpr wchar_t kAccountPrefix[] = L"NT SERVICE\\";
constexpr std::size_t kPrefixLength = std::size(kAccountPrefix) - 1;

// Set once while the library is loaded.
decltype(&LookupAccountNameW) real_lookup = nullptr;
decltype(&QueryServiceConfig2W) real_query = nullptr;

// S-1-5-80 and the SHA-1 of the upper-case name.
PSID SidOfService(std::wstring name) {
  CharUpperBuffW(name.data(), static_cast<DWORD>(name.size()));
  BCRYPT_ALG_HANDLE algorithm = nullptr;
  DWORD parts[5] = {};
  BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA1_ALGORITHM, nullptr, 0);
  BCryptHash(algorithm, nullptr, 0, reinterpret_cast<UCHAR*>(name.data()),
             static_cast<ULONG>(name.size() * sizeof(wchar_t)), reinterpret_cast<UCHAR*>(parts),
             sizeof parts);
  BCryptCloseAlgorithmProvider(algorithm, 0);
  SID_IDENTIFIER_AUTHORITY nt_authority = {SECURITY_NT_AUTHORITY};
  PSID sid = nullptr;
  AllocateAndInitializeSid(&nt_authority, 6, SECURITY_SERVICE_ID_BASE_RID, parts[0], parts[1],
                           parts[2], parts[3], parts[4], 0, 0, &sid);
  return sid;
}

bool IsService(const std::wstring& name) {
  return RegGetValueW(HKEY_LOCAL_MACHINE, (kServicesKey + name).c_str(), L"Start", RRF_RT_REG_DWORD,
                      nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

BOOL WINAPI LookupAccount(LPCWSTR system, LPCWSTR account, PSID sid, LPDWORD sid_size,
                          LPWSTR domain, LPDWORD domain_size, PSID_NAME_USE use) {
  const bool of_service = _wcsnicmp(account, kAccountPrefix, kPrefixLength) == 0;
  if (!of_service || !IsService(account + kPrefixLength)) {
    return real_lookup(system, account, sid, sid_size, domain, domain_size, use);
  }
  const PSID found = SidOfService(account + kPrefixLength);
  const DWORD size = GetLengthSid(found);
  const bool fits = *sid_size >= size && *domain_size >= kPrefixLength;
  if (fits) {
    CopySid(size, sid, found);
    // The prefix without its backslash.
    std::wmemcpy(domain, kAccountPrefix, kPrefixLength - 1);
    domain[kPrefixLength - 1] = L'\0';
    *use = SidTypeWellKnownGroup;
  }
  *sid_size = size;
  *domain_size = fits ? kPrefixLength - 1 : kPrefixLength;
  FreeSid(found);
  if (!fits) SetLastError(ERROR_INSUFFICIENT_BUFFER);
  return fits;
}

// The key name of an open service, by the name that it is shown under; empty if that fails.
std::wstring NameOfService(SC_HANDLE service) {
  DWORD needed = 0;
  QueryServiceConfigW(service, nullptr, 0, &needed);
  std::vector<BYTE> buffer(needed);
  auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
  wchar_t name[257] = L"";
  DWORD length = std::size(name);
  const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  if (!QueryServiceConfigW(service, config, needed, &needed) ||
      !GetServiceKeyNameW(manager, config->lpDisplayName, name, &length)) {
    name[0] = L'\0';
  }
  CloseServiceHandle(manager);
  return name;
}

BOOL WINAPI QueryConfig(SC_HANDLE service, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed) {
  if (level != SERVICE_CONFIG_SERVICE_SID_INFO) {
    return real_query(service, level, buffer, size, needed);
  }
  *needed = sizeof(SERVICE_SID_INFO);
  if (size < *needed) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  DWORD type = SERVICE_SID_TYPE_NONE;
  DWORD type_size = sizeof type;
  RegGetValueW(HKEY_LOCAL_MACHINE, (kServicesKey + NameOfService(service)).c_str(),
               L"ServiceSidType", RRF_RT_REG_DWORD, nullptr, &type, &type_size);
  reinterpret_cast<SERVICE_SID_INFO*>(buffer)->dwServiceSidType = type;
  return TRUE;
}

// Leads an import of the program by one library elsewhere; `real` gets what it was led to before,
// and stays null if the program does not import it.
template <typename Function>
void LeadImport(const IMAGE_IMPORT_DESCRIPTOR& library, const char* name, Function* replacement,
                Function*& real) {
  auto* const base = reinterpret_cast<BYTE*>(GetModuleHandleW(nullptr));
  const auto* imported =
      reinterpret_cast<const IMAGE_THUNK_DATA*>(base + library.OriginalFirstThunk);
  auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + library.FirstThunk);
  for (; imported->u1.AddressOfData != 0; ++imported, ++slot) {
    if (IMAGE_SNAP_BY_ORDINAL(imported->u1.Ordinal)) continue;
    const auto* const by_name =
        reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + imported->u1.AddressOfData);
    if (std::strcmp(by_name->Name, name) != 0) continue;
    real = reinterpret_cast<Function*>(slot->u1.Function);
    DWORD protection = 0;
    VirtualProtect(&slot->u1.Function, sizeof slot->u1.Function, PAGE_READWRITE, &protection);
    slot->u1.Function = reinterpret_cast<ULONGLONG>(replacement);
    VirtualProtect(&slot->u1.Function, sizeof slot->u1.Function, protection, &protection);
  }
}

void LeadImports() {
  auto* const base = reinterpret_cast<const BYTE*>(GetModuleHandleW(nullptr));
  const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& directory =
      headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  const auto* library =
      reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
  for (; library->Name != 0; ++library) {
    LeadImport(*library, "LookupAccountNameW", LookupAccount, real_lookup);
    LeadImport(*library, "QueryServiceConfig2W", QueryConfig, real_query);
  }
}

}  // namespace
}  // namespace simulation

BOOL WINAPI DllMain(HINSTANCE /*library*/, DWORD reason, LPVOID /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) simulation::LeadImports();
  return TRUE;
}

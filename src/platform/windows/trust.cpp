#include "platform/trust.h"

#include "platform/windows/owned.h"
#include "platform/windows/system_library.h"

// The trust headers lean on this one without including it.
#include <wincrypt.h>

#include <mscat.h>
#include <softpub.h>
#include <wintrust.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"

namespace kestrelon::platform {
namespace {

constexpr DWORD kSignerNameRoom = 512;

using AcquireContext2 = BOOL WINAPI(HCATADMIN*, const GUID*, PCWSTR, const void*, DWORD);
using CalcHashFromFileHandle2 = BOOL WINAPI(HCATADMIN, HANDLE, DWORD*, BYTE*, DWORD);

void CloseCatalogAdmin(HCATADMIN admin) {
  CryptCATAdminReleaseContext(admin, 0);
}

using FileHandle = Owned<HANDLE, CloseKernelHandle, -1>;
using CatalogAdmin = Owned<HCATADMIN, CloseCatalogAdmin>;

// A catalog can only be released together with the context that found it.
class Catalog {
 public:
  Catalog() = default;
  Catalog(HCATADMIN admin, HCATINFO catalog) : admin_(admin), catalog_(catalog) {}
  ~Catalog() {
    if (catalog_ != nullptr) CryptCATAdminReleaseCatalogContext(admin_, catalog_, 0);
  }
  Catalog(Catalog&& other) noexcept
      : admin_(other.admin_), catalog_(std::exchange(other.catalog_, nullptr)) {}
  Catalog& operator=(Catalog&& other) noexcept {
    std::swap(admin_, other.admin_);
    std::swap(catalog_, other.catalog_);
    return *this;
  }

  HCATINFO get() const { return catalog_; }

 private:
  HCATADMIN admin_ = nullptr;
  HCATINFO catalog_ = nullptr;
};

// The display name of the certificate that made the first signature; empty when there is none.
std::wstring SignerName(HANDLE state) {
  CRYPT_PROVIDER_DATA* const data = WTHelperProvDataFromStateData(state);
  if (data == nullptr) return {};
  CRYPT_PROVIDER_SGNR* const signer = WTHelperGetProvSignerFromChain(data, 0, FALSE, 0);
  if (signer == nullptr || signer->csCertChain == 0 || signer->pasCertChain == nullptr) return {};
  std::array<wchar_t, kSignerNameRoom> name{};
  const DWORD length =
      CertGetNameStringW(signer->pasCertChain[0].pCert, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr,
                         name.data(), kSignerNameRoom);
  // A length of 1 is the closing null alone.
  return length >= 2 ? std::wstring(name.data(), length - 1) : std::wstring();
}

Code Verify(WINTRUST_DATA& data, const TrustPass& pass, std::wstring& signer) {
  GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
  const auto no_window = static_cast<HWND>(INVALID_HANDLE_VALUE);
  data.cbStruct = sizeof data;
  data.dwUIChoice = WTD_UI_NONE;
  data.fdwRevocationChecks = pass.revocation_checks;
  data.dwProvFlags = pass.provider_flags;
  data.dwStateAction = WTD_STATEACTION_VERIFY;
  signer.clear();
  const auto code = static_cast<Code>(WinVerifyTrust(no_window, &action, &data));
  if (code == kSuccess) signer = SignerName(data.hWVTStateData);
  data.dwStateAction = WTD_STATEACTION_CLOSE;
  WinVerifyTrust(no_window, &action, &data);
  return code;
}

Code HashForCatalogs(const CatalogAdmin& admin, const FileHandle& file, std::vector<BYTE>& hash) {
  const SystemFunction<CalcHashFromFileHandle2> calculate(L"wintrust.dll",
                                                          "CryptCATAdminCalcHashFromFileHandle2");
  if (!calculate) return kProcedureNotFound;
  DWORD size = 0;
  if (!calculate(admin.get(), file.get(), &size, static_cast<BYTE*>(nullptr), DWORD{0})) {
    // Some systems answer the question for the size with a failure that still gives it.
    if (const Code code = GetLastError(); code != kInsufficientBuffer) return code;
  }
  hash.resize(size);
  if (!calculate(admin.get(), file.get(), &size, hash.data(), DWORD{0})) return GetLastError();
  hash.resize(size);
  return kSuccess;
}

}  // namespace

// Members stand in the order of their making; they are given back in reverse.
struct CatalogState {
  std::wstring file_path;
  FileHandle file;
  CatalogAdmin admin;
  std::vector<BYTE> hash;
  Catalog catalog;
  std::wstring catalog_path;
};

CatalogMember::CatalogMember() : state_(std::make_unique<CatalogState>()) {}
CatalogMember::~CatalogMember() = default;

Code VerifyEmbeddedSignature(const std::wstring& path, const TrustPass& pass,
                             std::wstring& signer) {
  WINTRUST_FILE_INFO file{};
  file.cbStruct = sizeof file;
  file.pcwszFilePath = path.c_str();
  WINTRUST_DATA data{};
  data.dwUnionChoice = WTD_CHOICE_FILE;
  data.pFile = &file;
  return Verify(data, pass, signer);
}

Code FindCatalogMember(const std::wstring& path, const std::wstring& algorithm,
                       CatalogMember& member) {
  CatalogState found;
  found.file_path = path;
  found.file = FileHandle(CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, 0, nullptr));
  if (!found.file) return GetLastError();
  const SystemFunction<AcquireContext2> acquire(L"wintrust.dll", "CryptCATAdminAcquireContext2");
  if (!acquire) return kProcedureNotFound;
  if (!acquire(found.admin.Receive(), static_cast<const GUID*>(nullptr), algorithm.c_str(),
               static_cast<const void*>(nullptr), DWORD{0})) {
    return GetLastError();
  }
  const Code code = HashForCatalogs(found.admin, found.file, found.hash);
  if (code != kSuccess) return code;
  const HCATINFO catalog = CryptCATAdminEnumCatalogFromHash(
      found.admin.get(), found.hash.data(), static_cast<DWORD>(found.hash.size()), 0, nullptr);
  // The search does not always leave an error behind, and finding nothing is no success.
  if (catalog == nullptr) return ERROR_NOT_FOUND;
  found.catalog = Catalog(found.admin.get(), catalog);
  CATALOG_INFO information{};
  information.cbStruct = sizeof information;
  if (!CryptCATCatalogInfoFromContext(catalog, &information, 0)) return GetLastError();
  found.catalog_path = information.wszCatalogFile;
  std::swap(member.state(), found);
  return kSuccess;
}

Code VerifyCatalogSignature(const CatalogMember& member, const TrustPass& pass,
                            std::wstring& signer) {
  CatalogState& state = member.state();
  // Members are filed in a catalog under the upper-case text of their hash.
  std::wstring tag = HexText(state.hash.data(), state.hash.size());
  for (wchar_t& digit : tag) {
    if (digit >= L'a') digit = static_cast<wchar_t>(digit - L'a' + L'A');
  }
  WINTRUST_CATALOG_INFO catalog{};
  catalog.cbStruct = sizeof catalog;
  catalog.pcwszCatalogFilePath = state.catalog_path.c_str();
  catalog.pcwszMemberTag = tag.c_str();
  catalog.pcwszMemberFilePath = state.file_path.c_str();
  catalog.hMemberFile = state.file.get();
  catalog.pbCalculatedFileHash = state.hash.data();
  catalog.cbCalculatedFileHash = static_cast<DWORD>(state.hash.size());
  // Without it the hash would be taken for one of the old default algorithm.
  catalog.hCatAdmin = state.admin.get();
  WINTRUST_DATA data{};
  data.dwUnionChoice = WTD_CHOICE_CATALOG;
  data.pCatalog = &catalog;
  return Verify(data, pass, signer);
}

}  // namespace kestrelon::platform

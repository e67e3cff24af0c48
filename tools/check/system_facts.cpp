#include "tools/check/system_facts.h"

#include <windows.h>

#include "base/format.h"
#include "base/text.h"
#include "identity/file_identity.h"
#include "platform/paths.h"
#include "platform/registry.h"
#include "platform/resources.h"
#include "platform/security.h"
#include "platform/wfp.h"

namespace kestrelon::check {
namespace {

constexpr const wchar_t* kVersionKey = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
constexpr const wchar_t* kUnknown = L"unknown";

std::wstring VersionValue(const wchar_t* name) {
  constexpr std::uint32_t kMostBytes = 512;
  std::wstring value;
  if (platform::ReadRegistryText(kVersionKey, name, kMostBytes, value) != platform::kSuccess) {
    return kUnknown;
  }
  return value;
}

}  // namespace

std::string WineVersion() {
  using Function = const char*(CDECL*)();
  const FARPROC found = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version");
  if (found == nullptr) return {};
  return reinterpret_cast<Function>(reinterpret_cast<void*>(found))();
}

std::wstring SystemName() {
  std::uint32_t revision = 0;
  (void)platform::ReadRegistryDword(kVersionKey, L"UBR", revision);
  std::wstring name =
      Format(L"%s, version %s, build %s.%u", VersionValue(L"ProductName"),
             VersionValue(L"DisplayVersion"), VersionValue(L"CurrentBuild"), revision);
  if (const std::string wine = WineVersion(); !wine.empty()) {
    name += L", as Wine " + WideFromUtf8(wine) + L" shows it";
  }
  return name;
}

bool RunsAsLocalSystem() {
  bool local_system = false;
  return platform::IsProcessLocalSystem(local_system) == platform::kSuccess && local_system;
}

std::wstring OwnDirectory() {
  std::wstring path;
  if (platform::ExecutableFile(path) != platform::kSuccess) return L".";
  return path.substr(0, path.rfind(L'\\'));
}

std::wstring ServiceExecutable() {
  return OwnDirectory() + L"\\KestrelonSvc.exe";
}

std::wstring ServiceVersion() {
  platform::VersionBlock block;
  std::wstring text;
  if (platform::LoadVersionBlock(ServiceExecutable(), block) != platform::kSuccess ||
      !platform::VersionText(block, L"\\StringFileInfo\\040904b0\\FileVersion", text)) {
    return kUnknown;
  }
  return text;
}

std::wstring ServiceSha256() {
  const std::wstring sha256 = IdentityFor(ServiceExecutable()).sha256;
  return sha256.empty() ? kUnknown : sha256;
}

bool HasConsoleToItself() {
  DWORD processes[2];
  return GetConsoleProcessList(processes, 2) == 1;
}

platform::Code EngineAnswer() {
  platform::EngineHandle engine = 0;
  const platform::Code code = platform::OpenEngineSession({L"KestrelonCheck", 0, 5000}, engine);
  if (code == platform::kSuccess) platform::CloseEngineSession(engine);
  return code;
}

}  // namespace kestrelon::check

#include "platform/process_hardening.h"

#include "platform/windows/windows_headers.h"

namespace kestrelon::platform {
namespace {

// Policies that a process can set for itself and never loosen; none is handed on to programs that
// it starts. Each is a record of one DWORD, whose bits are named here as they are there.
constexpr struct Mitigation {
  PROCESS_MITIGATION_POLICY policy;
  DWORD bits;
} kMitigations[] = {
    // DisableExtensionPoints: no library that has itself put into every process.
    {ProcessExtensionPointDisablePolicy, 0x1},
    // NoRemoteImages, NoLowMandatoryLabelImages, PreferSystem32Images: none from other machines,
    // none
    // that anybody could have written, whoever asks for it by its full path.
    {ProcessImageLoadPolicy, 0x7},
    // EnableForceRelocateImages: what others bring is moved even if it did not ask for it.
    {ProcessASLRPolicy, 0x2},
    // DisableNonSystemFonts: nothing is drawn here, and fonts are read by the kernel.
    {ProcessFontDisablePolicy, 0x1},
};

}  // namespace

Code HardenProcess() {
  Code first_failure = kSuccess;
  const auto heed = [&first_failure](BOOL done) {
    if (!done && first_failure == kSuccess) first_failure = GetLastError();
  };
  heed(SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32));
  for (const auto& [policy, bits] : kMitigations) {
    DWORD flags = bits;
    heed(SetProcessMitigationPolicy(policy, &flags, sizeof flags));
  }
  heed(HeapSetInformation(nullptr, HeapEnableTerminationOnCorruption, nullptr, 0));
  // A drive without a disk is an error, not a box on a desktop that nobody sees. Programs that this
  // one starts begin so too, which is what programs are advised to do anyway.
  SetErrorMode(GetErrorMode() | SEM_FAILCRITICALERRORS);
  return first_failure;
}

}  // namespace kestrelon::platform

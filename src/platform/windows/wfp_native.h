// Records of the filtering platform in the platform's own structures and back.
#pragma once

#include "platform/windows/windows_headers.h"

#include <fwpmu.h>

#include <cstdint>
#include <memory_resource>

#include "platform/wfp_records.h"

// In the import library, but in the headers only of newer releases of them.
extern "C" DWORD WINAPI FwpmSubLayerSetSecurityInfoByKey0(HANDLE engineHandle, const GUID* key,
                                                          SECURITY_INFORMATION securityInfo,
                                                          const SID* sidOwner, const SID* sidGroup,
                                                          const ACL* dacl, const ACL* sacl);

namespace kestrelon::platform {

// Gives back memory of the engine's library, which wants the address of the pointer to it. For
// Owned.
inline void FreeEngineMemory(void* memory) {
  FwpmFreeMemory0(&memory);
}

// The handle behind one of the seam's engine handles.
inline HANDLE NativeHandle(std::uintptr_t handle) {
  return reinterpret_cast<HANDLE>(handle);
}

GUID NativeGuid(const Guid& guid);
Guid GuidFromNative(const GUID& guid);

// The display data of a record; its texts stay the record's. An empty text becomes none.
FWPM_DISPLAY_DATA0 NativeDisplayData(const std::wstring& name, const std::wstring& description);

// A filter in the platform's form. The structures point at each other, into one block of memory of
// this object's, and at the bytes and texts of the record: both must outlive the use of get().
class NativeFilter {
 public:
  explicit NativeFilter(const Filter& filter);
  NativeFilter(const NativeFilter&) = delete;
  NativeFilter& operator=(const NativeFilter&) = delete;

  const FWPM_FILTER0& get() const { return native_; }

 private:
  // Filters of a rule with a long list of addresses have thousands of conditions: what they point
  // at comes from here, not from an allocation for each.
  std::pmr::monotonic_buffer_resource memory_;
  GUID provider_{};
  FWPM_FILTER0 native_{};
};

// Copies of what the engine gave.
Filter FilterFromNative(const FWPM_FILTER0& native);
Sublayer SublayerFromNative(const FWPM_SUBLAYER0& native);

}  // namespace kestrelon::platform

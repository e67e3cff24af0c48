#include "platform/registry.h"

#include "platform/windows/windows_headers.h"

namespace kestrelon::platform {

Code ReadRegistryDword(const std::wstring& key, const std::wstring& name, std::uint32_t& value) {
  DWORD data = 0;
  DWORD size = sizeof data;
  const LSTATUS status = RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name.c_str(),
                                      RRF_RT_REG_DWORD, nullptr, &data, &size);
  if (status == ERROR_SUCCESS) value = data;
  return static_cast<Code>(status);
}

Code WriteRegistryDword(const std::wstring& key, const std::wstring& name, std::uint32_t value) {
  const DWORD data = value;
  return static_cast<Code>(RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name.c_str(), REG_DWORD,
                                           &data, sizeof data));
}

}  // namespace kestrelon::platform

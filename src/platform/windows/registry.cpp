#include "platform/registry.h"

#include "platform/windows/windows_headers.h"

namespace kestrelon::platform {
namespace {

template <typename T>
Code ReadNumber(const std::wstring& key, const std::wstring& name, DWORD types, T& value) {
  T data = 0;
  DWORD size = sizeof data;
  const LSTATUS status =
      RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name.c_str(), types, nullptr, &data, &size);
  if (status == ERROR_SUCCESS) value = data;
  return static_cast<Code>(status);
}

Code Write(const std::wstring& key, const std::wstring& name, DWORD type, const void* data,
           std::size_t size) {
  return static_cast<Code>(RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name.c_str(), type,
                                           data, static_cast<DWORD>(size)));
}

}  // namespace

Code ReadRegistryDword(const std::wstring& key, const std::wstring& name, std::uint32_t& value) {
  return ReadNumber(key, name, RRF_RT_REG_DWORD, value);
}

Code WriteRegistryDword(const std::wstring& key, const std::wstring& name, std::uint32_t value) {
  return Write(key, name, REG_DWORD, &value, sizeof value);
}

Code ReadRegistryQword(const std::wstring& key, const std::wstring& name, std::uint64_t& value) {
  return ReadNumber(key, name, RRF_RT_REG_QWORD, value);
}

Code WriteRegistryQword(const std::wstring& key, const std::wstring& name, std::uint64_t value) {
  return Write(key, name, REG_QWORD, &value, sizeof value);
}

Code ReadRegistryText(const std::wstring& key, const std::wstring& name, std::uint32_t most_bytes,
                      std::wstring& value) {
  std::wstring text(most_bytes / sizeof(wchar_t), L'\0');
  auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
  // Without the second flag the platform would expand a REG_EXPAND_SZ and pass it for a REG_SZ. It
  // closes with a null what was stored without one.
  const LSTATUS status = RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name.c_str(),
                                      RRF_RT_REG_SZ | RRF_NOEXPAND, nullptr, text.data(), &size);
  if (status == ERROR_SUCCESS) value = text.c_str();
  return static_cast<Code>(status);
}

Code WriteRegistryText(const std::wstring& key, const std::wstring& name,
                       const std::wstring& value) {
  return Write(key, name, REG_SZ, value.c_str(), (value.size() + 1) * sizeof(wchar_t));
}

Code DeleteRegistryValue(const std::wstring& key, const std::wstring& name) {
  return static_cast<Code>(RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name.c_str()));
}

}  // namespace kestrelon::platform

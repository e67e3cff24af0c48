// The machine's registry: values below HKEY_LOCAL_MACHINE. It survives a power cut whole.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "platform/codes.h"

namespace simulation {

// Keys and names are found without regard to case. Any thread.
class Registry {
 public:
  void SetDword(const std::wstring& key, const std::wstring& name, std::uint32_t value);

  // A REG_SZ, for trying how a value of the wrong type is met.
  void SetText(const std::wstring& key, const std::wstring& name, const std::wstring& value);

  // The value, if it is there and is a REG_DWORD.
  std::optional<std::uint32_t> Dword(const std::wstring& key, const std::wstring& name) const;

  // Does nothing when there is no such value.
  void Remove(const std::wstring& key, const std::wstring& name);

  // As Dword, with the platform's code: missing is 2, another type 1630.
  kestrelon::platform::Code Read(const std::wstring& key, const std::wstring& name,
                                 std::uint32_t& value) const;

 private:
  using Place = std::pair<std::wstring, std::wstring>;  // key and name, case folded

  static Place PlaceOf(const std::wstring& key, const std::wstring& name);

  mutable std::mutex mutex_;
  std::map<Place, std::variant<std::uint32_t, std::wstring>> values_;  // guarded by mutex_
};

}  // namespace simulation

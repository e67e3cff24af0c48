// The machine's registry: values below HKEY_LOCAL_MACHINE. It survives a power cut whole.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace simulation {

// Keys and names are found without regard to case. Any thread.
class Registry {
 public:
  using Value = std::variant<std::uint32_t, std::uint64_t, std::wstring>;  // DWORD, QWORD, SZ

  // Puts a value in place of the one of this name, of whichever type that is.
  void Set(const std::wstring& key, const std::wstring& name, Value value);
  void SetDword(const std::wstring& key, const std::wstring& name, std::uint32_t value) {
    Set(key, name, value);
  }
  void SetText(const std::wstring& key, const std::wstring& name, const std::wstring& value) {
    Set(key, name, value);
  }

  // The value, if it is there.
  std::optional<Value> Find(const std::wstring& key, const std::wstring& name) const;

  // The same, if it is of that type too.
  std::optional<std::uint32_t> Dword(const std::wstring& key, const std::wstring& name) const {
    return Typed<std::uint32_t>(key, name);
  }
  std::optional<std::uint64_t> Qword(const std::wstring& key, const std::wstring& name) const {
    return Typed<std::uint64_t>(key, name);
  }
  std::optional<std::wstring> Text(const std::wstring& key, const std::wstring& name) const {
    return Typed<std::wstring>(key, name);
  }

  // Does nothing when there is no such value.
  void Remove(const std::wstring& key, const std::wstring& name);

 private:
  using Place = std::pair<std::wstring, std::wstring>;  // key and name, case folded

  static Place PlaceOf(const std::wstring& key, const std::wstring& name);

  template <typename T>
  std::optional<T> Typed(const std::wstring& key, const std::wstring& name) const {
    const std::optional<Value> value = Find(key, name);
    if (!value || !std::holds_alternative<T>(*value)) return std::nullopt;
    return std::get<T>(*value);
  }

  mutable std::mutex mutex_;
  std::map<Place, Value> values_;  // guarded by mutex_
};

}  // namespace simulation

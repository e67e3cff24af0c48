#include "simulation/machine/registry.h"

#include "base/text.h"
#include "platform/registry.h"
#include "simulation/machine/letter_case.h"
#include "simulation/machine/machine.h"

namespace simulation {

Registry::Place Registry::PlaceOf(const std::wstring& key, const std::wstring& name) {
  return {FoldCase(key), FoldCase(name)};
}

void Registry::Set(const std::wstring& key, const std::wstring& name, Value value) {
  const std::lock_guard lock(mutex_);
  values_[PlaceOf(key, name)] = std::move(value);
}

std::optional<Registry::Value> Registry::Find(const std::wstring& key,
                                              const std::wstring& name) const {
  const std::lock_guard lock(mutex_);
  const auto found = values_.find(PlaceOf(key, name));
  if (found == values_.end()) return std::nullopt;
  return found->second;
}

void Registry::Remove(const std::wstring& key, const std::wstring& name) {
  const std::lock_guard lock(mutex_);
  values_.erase(PlaceOf(key, name));
}

}  // namespace simulation

namespace kestrelon::platform {

using simulation::Registry;
using simulation::TheMachine;

namespace {

constexpr Code kUnsupportedType = 1630;

template <typename T>
Code Read(const std::wstring& key, const std::wstring& name, T& value) {
  const std::optional<Registry::Value> found = TheMachine().registry.Find(key, name);
  if (!found) return kFileNotFound;
  const T* const typed = std::get_if<T>(&*found);
  if (typed == nullptr) return kUnsupportedType;
  value = *typed;
  return kSuccess;
}

Code Write(const std::wstring& key, const std::wstring& name, const Registry::Value& value) {
  simulation::Machine& machine = TheMachine();
  return machine.files.CountChange([&] { machine.registry.Set(key, name, value); });
}

}  // namespace

Code ReadRegistryDword(const std::wstring& key, const std::wstring& name, std::uint32_t& value) {
  if (const Code fault = TheMachine().faults.Next("ReadRegistryDword")) return fault;
  return Read(key, name, value);
}

Code WriteRegistryDword(const std::wstring& key, const std::wstring& name, std::uint32_t value) {
  if (const Code fault = TheMachine().faults.Next("WriteRegistryDword")) return fault;
  return Write(key, name, value);
}

Code ReadRegistryQword(const std::wstring& key, const std::wstring& name, std::uint64_t& value) {
  if (const Code fault = TheMachine().faults.Next("ReadRegistryQword")) return fault;
  return Read(key, name, value);
}

Code WriteRegistryQword(const std::wstring& key, const std::wstring& name, std::uint64_t value) {
  if (const Code fault = TheMachine().faults.Next("WriteRegistryQword")) return fault;
  return Write(key, name, value);
}

Code ReadRegistryText(const std::wstring& key, const std::wstring& name, std::uint32_t most_bytes,
                      std::wstring& value) {
  if (const Code fault = TheMachine().faults.Next("ReadRegistryText")) return fault;
  std::wstring found;
  if (const Code code = Read(key, name, found)) return code;
  if (Utf16BytesWithNull(found).size() > most_bytes) return kMoreData;
  value = found;
  return kSuccess;
}

Code WriteRegistryText(const std::wstring& key, const std::wstring& name,
                       const std::wstring& value) {
  if (const Code fault = TheMachine().faults.Next("WriteRegistryText")) return fault;
  return Write(key, name, value);
}

Code DeleteRegistryValue(const std::wstring& key, const std::wstring& name) {
  simulation::Machine& machine = TheMachine();
  if (const Code fault = machine.faults.Next("DeleteRegistryValue")) return fault;
  if (!machine.registry.Find(key, name)) return kFileNotFound;
  return machine.files.CountChange([&] { machine.registry.Remove(key, name); });
}

}  // namespace kestrelon::platform

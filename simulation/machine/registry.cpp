#include "simulation/machine/registry.h"

#include "platform/registry.h"
#include "simulation/machine/letter_case.h"
#include "simulation/machine/machine.h"

namespace simulation {

using kestrelon::platform::Code;

namespace {

constexpr Code kUnsupportedType = 1630;

}  // namespace

Registry::Place Registry::PlaceOf(const std::wstring& key, const std::wstring& name) {
  return {FoldCase(key), FoldCase(name)};
}

void Registry::SetDword(const std::wstring& key, const std::wstring& name, std::uint32_t value) {
  const std::lock_guard lock(mutex_);
  values_[PlaceOf(key, name)] = value;
}

void Registry::SetText(const std::wstring& key, const std::wstring& name,
                       const std::wstring& value) {
  const std::lock_guard lock(mutex_);
  values_[PlaceOf(key, name)] = value;
}

std::optional<std::uint32_t> Registry::Dword(const std::wstring& key,
                                             const std::wstring& name) const {
  std::uint32_t value = 0;
  if (Read(key, name, value) != kestrelon::platform::kSuccess) return std::nullopt;
  return value;
}

void Registry::Remove(const std::wstring& key, const std::wstring& name) {
  const std::lock_guard lock(mutex_);
  values_.erase(PlaceOf(key, name));
}

Code Registry::Read(const std::wstring& key, const std::wstring& name, std::uint32_t& value) const {
  const std::lock_guard lock(mutex_);
  const auto found = values_.find(PlaceOf(key, name));
  if (found == values_.end()) return kestrelon::platform::kFileNotFound;
  const auto* const dword = std::get_if<std::uint32_t>(&found->second);
  if (dword == nullptr) return kUnsupportedType;
  value = *dword;
  return kestrelon::platform::kSuccess;
}

}  // namespace simulation

namespace kestrelon::platform {

using simulation::TheMachine;

Code ReadRegistryDword(const std::wstring& key, const std::wstring& name, std::uint32_t& value) {
  if (const Code fault = TheMachine().faults.Next("ReadRegistryDword")) return fault;
  return TheMachine().registry.Read(key, name, value);
}

Code WriteRegistryDword(const std::wstring& key, const std::wstring& name, std::uint32_t value) {
  if (const Code fault = TheMachine().faults.Next("WriteRegistryDword")) return fault;
  TheMachine().registry.SetDword(key, name, value);
  return kSuccess;
}

}  // namespace kestrelon::platform

#include "platform/security.h"

#include "simulation/machine/descriptor_text.h"
#include "simulation/machine/letter_case.h"
#include "simulation/machine/machine.h"
#include "simulation/machine/sid.h"

namespace kestrelon::platform {
namespace {

using simulation::TheMachine;

constexpr Code kInvalidSid = 1337;
constexpr Code kInvalidArgument = 0x80070057;  // E_INVALIDARG
constexpr std::size_t kLongestPackageName = 64;
constexpr std::uint8_t kDaclPresent = 0x4;

constexpr std::wstring_view kServicePrefix = L"NT SERVICE\\";

std::uint32_t DaclOffset(const SecurityDescriptor& descriptor) {
  std::uint32_t offset = 0;
  for (std::size_t i = 0; i < 4; ++i) offset |= std::uint32_t{descriptor[16 + i]} << (8 * i);
  return offset;
}

bool HasDacl(const SecurityDescriptor& descriptor) {
  return descriptor.size() >= 20 && (descriptor[2] & kDaclPresent) != 0 &&
         DaclOffset(descriptor) != 0;
}

}  // namespace

Code DescriptorFromText(const std::wstring& text, SecurityDescriptor& descriptor) {
  if (const Code fault = TheMachine().faults.Next("DescriptorFromText")) return fault;
  return simulation::ParseDescriptorText(text, descriptor);
}

Code SidFromText(const std::wstring& text, Sid& sid) {
  if (const Code fault = TheMachine().faults.Next("SidFromText")) return fault;
  const std::optional<simulation::SidBytes> parsed = simulation::ParseSid(text);
  if (!parsed) return kInvalidSid;
  sid = *parsed;
  return kSuccess;
}

Code SidText(std::span<const std::uint8_t> sid, std::wstring& text) {
  if (const Code fault = TheMachine().faults.Next("SidText")) return fault;
  const simulation::SidBytes bytes(sid.begin(), sid.end());
  if (!simulation::IsSid(bytes)) return kInvalidSid;
  text = simulation::SidText(bytes);
  return kSuccess;
}

Code SidOfAccount(const std::wstring& name, std::wstring& sid_text) {
  if (const Code fault = TheMachine().faults.Next("SidOfAccount")) return fault;
  if (const auto builtin = simulation::BuiltinAccountSid(name)) {
    sid_text = simulation::SidText(*builtin);
    return kSuccess;
  }
  if (!simulation::FoldCase(name).starts_with(kServicePrefix)) return kNoneMapped;
  const std::wstring service = name.substr(kServicePrefix.size());
  if (!TheMachine().services.Exists(service)) return kNoneMapped;
  sid_text = simulation::SidText(simulation::ServiceSid(service));
  return kSuccess;
}

Code SidOfPackage(const std::wstring& name, std::wstring& sid_text) {
  if (const Code fault = TheMachine().faults.Next("SidOfPackage")) return fault;
  if (name.empty() || name.size() > kLongestPackageName) return kInvalidArgument;
  sid_text = simulation::SidText(simulation::PackageSid(name));
  return kSuccess;
}

Code ProtectFile(const std::wstring& path, const SecurityDescriptor& descriptor) {
  if (const Code fault = TheMachine().faults.Next("ProtectFile")) return fault;
  if (!HasDacl(descriptor)) return kInvalidSecurityDescriptor;
  return TheMachine().files.Protect(path, descriptor);
}

Code IsProcessElevated(bool& elevated) {
  if (const Code fault = TheMachine().faults.Next("IsProcessElevated")) return fault;
  elevated = TheMachine().token.elevated;
  return kSuccess;
}

Code IsProcessLocalSystem(bool& local_system) {
  if (const Code fault = TheMachine().faults.Next("IsProcessLocalSystem")) return fault;
  local_system = TheMachine().token.local_system;
  return kSuccess;
}

}  // namespace kestrelon::platform

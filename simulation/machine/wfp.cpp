// The machine's engine behind the seam. A handle of the seam is the engine's own number.
//
// Calls that end something do so even when a fault makes them fail: on the platform they fail only
// with the session itself, which takes all of it along.
#include "platform/wfp.h"

#include <algorithm>
#include <random>

#include "base/text.h"
#include "simulation/machine/letter_case.h"
#include "simulation/machine/machine.h"
#include "simulation/machine/path_text.h"

namespace kestrelon::platform {
namespace {

using simulation::Caller;
using simulation::TheMachine;

Caller CallerOfProcess() {
  const simulation::ProcessToken& token = TheMachine().token;
  Caller caller;
  caller.local_system = token.local_system;
  caller.administrator = token.elevated || token.local_system;
  if (!caller.local_system) {
    caller.sids = {simulation::MakeSid(5, {21, 1000000001, 1000000002, 1000000003, 1001})};
  }
  return caller;
}

// The path by which the kernel names a file of a full path; empty if its drive has no device.
std::wstring DevicePath(const std::wstring& path) {
  const std::optional<simulation::ParsedPath> parsed = simulation::ParsePath(path);
  if (!parsed) return {};
  std::wstring device;
  if (parsed->root.starts_with(L"\\\\")) {
    device = L"\\device\\mup" + parsed->root.substr(1);
  } else {
    const auto& drives = TheMachine().environment.drives;
    const auto found = drives.find(simulation::FoldCase(parsed->root));
    if (found == drives.end()) return {};
    device = found->second;
  }
  for (const std::wstring& name : parsed->names) device += L"\\" + name;
  std::transform(device.begin(), device.end(), device.begin(), simulation::LowerLetter);
  return device;
}

}  // namespace

Code OpenEngineSession(const SessionOptions& options, EngineHandle& engine) {
  if (const Code fault = TheMachine().faults.Next("OpenEngineSession")) return fault;
  simulation::SessionId session = 0;
  const Code code = TheMachine().engine.OpenSession(options, CallerOfProcess(), session);
  if (code == kSuccess) engine = static_cast<EngineHandle>(session);
  return code;
}

Code CloseEngineSession(EngineHandle engine) {
  const Code fault = TheMachine().faults.Next("CloseEngineSession");
  const Code code = TheMachine().engine.CloseSession(engine);
  return fault != kSuccess ? fault : code;
}

Code AddProvider(EngineHandle engine, const Provider& provider,
                 const SecurityDescriptor& descriptor) {
  if (const Code fault = TheMachine().faults.Next("AddProvider")) return fault;
  return TheMachine().engine.AddProvider(engine, provider, descriptor);
}

Code AddSublayer(EngineHandle engine, const Sublayer& sublayer,
                 const SecurityDescriptor& descriptor) {
  if (const Code fault = TheMachine().faults.Next("AddSublayer")) return fault;
  return TheMachine().engine.AddSublayer(engine, sublayer, descriptor);
}

Code AddFilter(EngineHandle engine, const Filter& filter, const SecurityDescriptor& descriptor,
               std::uint64_t& id) {
  if (const Code fault = TheMachine().faults.Next("AddFilter")) return fault;
  return TheMachine().engine.AddFilter(engine, filter, descriptor, id);
}

Code DeleteProvider(EngineHandle engine, const Guid& key) {
  if (const Code fault = TheMachine().faults.Next("DeleteProvider")) return fault;
  return TheMachine().engine.DeleteProvider(engine, key);
}

Code DeleteSublayer(EngineHandle engine, const Guid& key) {
  if (const Code fault = TheMachine().faults.Next("DeleteSublayer")) return fault;
  return TheMachine().engine.DeleteSublayer(engine, key);
}

Code DeleteFilter(EngineHandle engine, const Guid& key) {
  if (const Code fault = TheMachine().faults.Next("DeleteFilter")) return fault;
  return TheMachine().engine.DeleteFilter(engine, key);
}

Code GetSublayer(EngineHandle engine, const Guid& key, Sublayer& sublayer) {
  if (const Code fault = TheMachine().faults.Next("GetSublayer")) return fault;
  return TheMachine().engine.GetSublayer(engine, key, sublayer);
}

Code GetFilter(EngineHandle engine, const Guid& key, Filter& filter) {
  if (const Code fault = TheMachine().faults.Next("GetFilter")) return fault;
  return TheMachine().engine.GetFilter(engine, key, filter);
}

Code SetProviderDacl(EngineHandle engine, const Guid& key, const SecurityDescriptor& descriptor) {
  if (const Code fault = TheMachine().faults.Next("SetProviderDacl")) return fault;
  return TheMachine().engine.SetProviderDacl(engine, key, descriptor);
}

Code SetSublayerDacl(EngineHandle engine, const Guid& key, const SecurityDescriptor& descriptor) {
  if (const Code fault = TheMachine().faults.Next("SetSublayerDacl")) return fault;
  return TheMachine().engine.SetSublayerDacl(engine, key, descriptor);
}

Code SetFilterDacl(EngineHandle engine, const Guid& key, const SecurityDescriptor& descriptor) {
  if (const Code fault = TheMachine().faults.Next("SetFilterDacl")) return fault;
  return TheMachine().engine.SetFilterDacl(engine, key, descriptor);
}

Code BeginTransaction(EngineHandle engine, std::uint32_t flags) {
  if (const Code fault = TheMachine().faults.Next("BeginTransaction")) return fault;
  return TheMachine().engine.Begin(engine, flags);
}

Code CommitTransaction(EngineHandle engine) {
  if (const Code fault = TheMachine().faults.Next("CommitTransaction")) {
    TheMachine().engine.Abort(engine);
    return fault;
  }
  return TheMachine().engine.Commit(engine);
}

Code AbortTransaction(EngineHandle engine) {
  const Code fault = TheMachine().faults.Next("AbortTransaction");
  const Code code = TheMachine().engine.Abort(engine);
  return fault != kSuccess ? fault : code;
}

Code OpenFilterEnum(EngineHandle engine, EnumHandle& enumeration) {
  if (const Code fault = TheMachine().faults.Next("OpenFilterEnum")) return fault;
  simulation::EnumId id = 0;
  const Code code = TheMachine().engine.OpenFilterEnum(engine, id);
  if (code == kSuccess) enumeration = static_cast<EnumHandle>(id);
  return code;
}

Code NextFilters(EngineHandle engine, EnumHandle enumeration, std::uint32_t count,
                 std::vector<Filter>& filters) {
  if (const Code fault = TheMachine().faults.Next("NextFilters")) return fault;
  simulation::FilterList fetched;
  const Code code = TheMachine().engine.NextFilters(engine, enumeration, count, fetched);
  if (code != kSuccess) return code;
  filters.clear();
  filters.reserve(fetched.size());
  for (const auto& filter : fetched) filters.push_back(*filter);
  return kSuccess;
}

Code CloseFilterEnum(EngineHandle engine, EnumHandle enumeration) {
  const Code fault = TheMachine().faults.Next("CloseFilterEnum");
  const Code code = TheMachine().engine.CloseFilterEnum(engine, enumeration);
  return fault != kSuccess ? fault : code;
}

Code SubscribeFilterChanges(EngineHandle engine, std::uint32_t flags, void (*callback)(void*),
                            void* context, SubscriptionHandle& subscription) {
  if (const Code fault = TheMachine().faults.Next("SubscribeFilterChanges")) return fault;
  simulation::SubscriptionId id = 0;
  const Code code = TheMachine().engine.SubscribeFilterChanges(
      engine, flags, [=](const simulation::FilterChange&) { callback(context); }, id);
  if (code == kSuccess) subscription = static_cast<SubscriptionHandle>(id);
  return code;
}

Code UnsubscribeFilterChanges(EngineHandle engine, SubscriptionHandle subscription) {
  const Code fault = TheMachine().faults.Next("UnsubscribeFilterChanges");
  const Code code = TheMachine().engine.UnsubscribeFilterChanges(engine, subscription);
  return fault != kSuccess ? fault : code;
}

Code AppIdOfFile(const std::wstring& path, Bytes& app_id) {
  if (const Code fault = TheMachine().faults.Next("AppIdOfFile")) return fault;
  FileInformation information;
  if (const Code code = TheMachine().files.Information(path, information)) return code;
  const std::wstring device_path = DevicePath(path);
  if (device_path.empty()) return kPathNotFound;
  app_id = Utf16BytesWithNull(device_path);
  return kSuccess;
}

Code NewGuid(Guid& guid) {
  if (const Code fault = TheMachine().faults.Next("NewGuid")) return fault;
  // Seeded once: asking the processor for each number would take most of a large application.
  static thread_local std::mt19937 random{std::random_device{}()};
  guid.data1 = static_cast<std::uint32_t>(random());
  guid.data2 = static_cast<std::uint16_t>(random());
  guid.data3 = static_cast<std::uint16_t>((random() & 0x0FFF) | 0x4000);  // random (version 4)
  for (std::uint8_t& byte : guid.data4) byte = static_cast<std::uint8_t>(random());
  guid.data4[0] = static_cast<std::uint8_t>((guid.data4[0] & 0x3F) | 0x80);
  return kSuccess;
}

}  // namespace kestrelon::platform

#include "platform/wfp.h"

#include "platform/windows/owned.h"
#include "platform/windows/wfp_native.h"

#include <rpc.h>

#include <memory>

namespace kestrelon::platform {
namespace {

// Null for an empty descriptor: the object then takes what its container hands down.
PSECURITY_DESCRIPTOR NativeDescriptor(const SecurityDescriptor& descriptor) {
  return descriptor.empty() ? nullptr : const_cast<std::uint8_t*>(descriptor.data());
}

using SetSecurityByKey = DWORD WINAPI(HANDLE, const GUID*, SECURITY_INFORMATION, const SID*,
                                      const SID*, const ACL*, const ACL*);

Code SetDacl(SetSecurityByKey* set, EngineHandle engine, const Guid& key,
             const SecurityDescriptor& descriptor) {
  PACL dacl = nullptr;
  if (!descriptor.empty()) {
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    if (!GetSecurityDescriptorDacl(NativeDescriptor(descriptor), &present, &dacl, &defaulted)) {
      return GetLastError();
    }
    if (!present) dacl = nullptr;
  }
  const GUID native = NativeGuid(key);
  return set(NativeHandle(engine), &native, DACL_SECURITY_INFORMATION, nullptr, nullptr, dacl,
             nullptr);
}

// What the engine's callback is given: the callback of the seam knows no change record.
struct Subscription {
  void (*callback)(void*) = nullptr;
  void* context = nullptr;
  HANDLE handle = nullptr;
};

void CALLBACK FilterChanged(void* context, const FWPM_FILTER_CHANGE0* /*change*/) {
  const auto* const subscription = static_cast<const Subscription*>(context);
  subscription->callback(subscription->context);
}

}  // namespace

Code OpenEngineSession(const SessionOptions& options, EngineHandle& engine) {
  FWPM_SESSION0 session{};
  session.displayData = NativeDisplayData(options.name, {});
  session.flags = options.flags;
  session.txnWaitTimeoutInMSec = options.transaction_wait_ms;
  HANDLE handle = nullptr;
  const Code code = FwpmEngineOpen0(nullptr, RPC_C_AUTHN_WINNT, nullptr, &session, &handle);
  if (code == kSuccess) engine = reinterpret_cast<EngineHandle>(handle);
  return code;
}

Code CloseEngineSession(EngineHandle engine) {
  return FwpmEngineClose0(NativeHandle(engine));
}

Code AddProvider(EngineHandle engine, const Provider& provider,
                 const SecurityDescriptor& descriptor) {
  FWPM_PROVIDER0 native{};
  native.providerKey = NativeGuid(provider.key);
  native.displayData = NativeDisplayData(provider.name, provider.description);
  native.flags = provider.flags;
  if (!provider.service_name.empty()) {
    native.serviceName = const_cast<wchar_t*>(provider.service_name.c_str());
  }
  return FwpmProviderAdd0(NativeHandle(engine), &native, NativeDescriptor(descriptor));
}

Code AddSublayer(EngineHandle engine, const Sublayer& sublayer,
                 const SecurityDescriptor& descriptor) {
  FWPM_SUBLAYER0 native{};
  native.subLayerKey = NativeGuid(sublayer.key);
  native.displayData = NativeDisplayData(sublayer.name, sublayer.description);
  // 16 or 32 bits wide, depending on the age of the headers; the structure is the same.
  native.flags = static_cast<decltype(native.flags)>(sublayer.flags);
  GUID provider{};
  if (sublayer.provider) {
    provider = NativeGuid(*sublayer.provider);
    native.providerKey = &provider;
  }
  native.weight = sublayer.weight;
  return FwpmSubLayerAdd0(NativeHandle(engine), &native, NativeDescriptor(descriptor));
}

Code AddFilter(EngineHandle engine, const Filter& filter, const SecurityDescriptor& descriptor,
               std::uint64_t& id) {
  const NativeFilter native(filter);
  UINT64 added = 0;
  const Code code =
      FwpmFilterAdd0(NativeHandle(engine), &native.get(), NativeDescriptor(descriptor), &added);
  if (code == kSuccess) id = added;
  return code;
}

Code DeleteProvider(EngineHandle engine, const Guid& key) {
  const GUID native = NativeGuid(key);
  return FwpmProviderDeleteByKey0(NativeHandle(engine), &native);
}

Code DeleteSublayer(EngineHandle engine, const Guid& key) {
  const GUID native = NativeGuid(key);
  return FwpmSubLayerDeleteByKey0(NativeHandle(engine), &native);
}

Code DeleteFilter(EngineHandle engine, const Guid& key) {
  const GUID native = NativeGuid(key);
  return FwpmFilterDeleteByKey0(NativeHandle(engine), &native);
}

Code GetSublayer(EngineHandle engine, const Guid& key, Sublayer& sublayer) {
  const GUID native = NativeGuid(key);
  Owned<FWPM_SUBLAYER0*, FreeEngineMemory> found;
  const Code code = FwpmSubLayerGetByKey0(NativeHandle(engine), &native, found.Receive());
  if (code == kSuccess) sublayer = SublayerFromNative(*found.get());
  return code;
}

Code GetFilter(EngineHandle engine, const Guid& key, Filter& filter) {
  const GUID native = NativeGuid(key);
  Owned<FWPM_FILTER0*, FreeEngineMemory> found;
  const Code code = FwpmFilterGetByKey0(NativeHandle(engine), &native, found.Receive());
  if (code == kSuccess) filter = FilterFromNative(*found.get());
  return code;
}

Code SetProviderDacl(EngineHandle engine, const Guid& key, const SecurityDescriptor& descriptor) {
  return SetDacl(FwpmProviderSetSecurityInfoByKey0, engine, key, descriptor);
}

Code SetSublayerDacl(EngineHandle engine, const Guid& key, const SecurityDescriptor& descriptor) {
  return SetDacl(FwpmSubLayerSetSecurityInfoByKey0, engine, key, descriptor);
}

Code SetFilterDacl(EngineHandle engine, const Guid& key, const SecurityDescriptor& descriptor) {
  return SetDacl(FwpmFilterSetSecurityInfoByKey0, engine, key, descriptor);
}

Code BeginTransaction(EngineHandle engine, std::uint32_t flags) {
  return FwpmTransactionBegin0(NativeHandle(engine), flags);
}

Code CommitTransaction(EngineHandle engine) {
  return FwpmTransactionCommit0(NativeHandle(engine));
}

Code AbortTransaction(EngineHandle engine) {
  return FwpmTransactionAbort0(NativeHandle(engine));
}

Code OpenFilterEnum(EngineHandle engine, EnumHandle& enumeration) {
  HANDLE handle = nullptr;
  const Code code = FwpmFilterCreateEnumHandle0(NativeHandle(engine), nullptr, &handle);
  if (code == kSuccess) enumeration = reinterpret_cast<EnumHandle>(handle);
  return code;
}

Code NextFilters(EngineHandle engine, EnumHandle enumeration, std::uint32_t count,
                 std::vector<Filter>& filters) {
  // One block for the array and all that its entries point at.
  Owned<FWPM_FILTER0**, FreeEngineMemory> entries;
  UINT32 returned = 0;
  const Code code = FwpmFilterEnum0(NativeHandle(engine), NativeHandle(enumeration), count,
                                    entries.Receive(), &returned);
  if (code != kSuccess) return code;
  filters.clear();
  filters.reserve(returned);
  for (UINT32 i = 0; i < returned; ++i) filters.push_back(FilterFromNative(*entries.get()[i]));
  return kSuccess;
}

Code CloseFilterEnum(EngineHandle engine, EnumHandle enumeration) {
  return FwpmFilterDestroyEnumHandle0(NativeHandle(engine), NativeHandle(enumeration));
}

Code SubscribeFilterChanges(EngineHandle engine, std::uint32_t flags, void (*callback)(void*),
                            void* context, SubscriptionHandle& subscription) {
  auto state = std::make_unique<Subscription>();
  state->callback = callback;
  state->context = context;
  FWPM_FILTER_SUBSCRIPTION0 native{};
  native.flags = flags;
  const Code code = FwpmFilterSubscribeChanges0(NativeHandle(engine), &native, FilterChanged,
                                                state.get(), &state->handle);
  if (code == kSuccess) subscription = reinterpret_cast<SubscriptionHandle>(state.release());
  return code;
}

Code UnsubscribeFilterChanges(EngineHandle engine, SubscriptionHandle subscription) {
  std::unique_ptr<Subscription> state(reinterpret_cast<Subscription*>(subscription));
  const Code code = FwpmFilterUnsubscribeChanges0(NativeHandle(engine), state->handle);
  // Only a success promises that no callback is running or will run: otherwise the state stays.
  if (code != kSuccess) (void)state.release();
  return code;
}

Code AppIdOfFile(const std::wstring& path, Bytes& app_id) {
  Owned<FWP_BYTE_BLOB*, FreeEngineMemory> blob;
  const Code code = FwpmGetAppIdFromFileName0(path.c_str(), blob.Receive());
  if (code != kSuccess) return code;
  app_id.assign(blob.get()->data, blob.get()->data + blob.get()->size);
  return kSuccess;
}

Code NewGuid(Guid& guid) {
  GUID native{};
  const HRESULT result = CoCreateGuid(&native);
  if (FAILED(result)) return static_cast<Code>(result);
  guid = GuidFromNative(native);
  return kSuccess;
}

}  // namespace kestrelon::platform

// The library that stands for the platform's fwpuclnt.dll under Wine: the exported functions of
// the filtering platform's management interface, served by the bench's BFE.
//
// It exports what the programs of this project call and no more; a program that imports anything
// else doesn't start. What it knows but does not do (enumeration templates, other machines, parts
// of a security descriptor other than the access list) it refuses with "not supported".
#include <windows.h>

#include <fwpmu.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "base/guard.h"
#include "simulation/bench/app_id.h"
#include "simulation/bench/change_listener.h"
#include "simulation/bench/engine_client.h"
#include "simulation/bench/wfp_input.h"
#include "simulation/bench/wfp_output.h"

namespace simulation {
namespace {

using kestrelon::GuardLock;
using kestrelon::platform::kInvalidHandle;
using kestrelon::platform::kNotSupported;
using kestrelon::platform::kNullPointer;
using kestrelon::platform::kSuccess;

// What an engine handle points at.
struct EngineSession {
  std::unique_ptr<EngineClient> client;
  kestrelon::Guard guard{"EngineSession", kestrelon::GuardRank::kRecord};
  std::vector<std::unique_ptr<FilterChangeListener>> listeners GUARDED_BY(guard);
};

EngineSession& SessionOf(HANDLE handle) {
  return *static_cast<EngineSession*>(handle);
}
EngineClient& ClientOf(HANDLE handle) {
  return *SessionOf(handle).client;
}

Code SetDacl(HANDLE engine, TargetKind kind, const GUID* key, SECURITY_INFORMATION parts,
             const ACL* dacl) {
  if (engine == nullptr) return kInvalidHandle;
  if (key == nullptr) return kNullPointer;
  if (parts != DACL_SECURITY_INFORMATION) return kNotSupported;
  Bytes descriptor;
  if (const Code code = DescriptorOfDacl(dacl, descriptor)) return code;
  return ClientOf(engine).SetDacl(kind, GuidOf(*key), descriptor);
}

Code Delete(HANDLE engine, TargetKind kind, const GUID* key) {
  if (engine == nullptr) return kInvalidHandle;
  if (key == nullptr) return kNullPointer;
  return ClientOf(engine).Delete(kind, GuidOf(*key));
}

template <typename Record, typename Native>
Code Get(HANDLE engine, Code (EngineClient::*get)(const Guid&, Record&), const GUID* key,
         Native** answer) {
  if (engine == nullptr) return kInvalidHandle;
  if (key == nullptr || answer == nullptr) return kNullPointer;
  Record record;
  const Code code = (ClientOf(engine).*get)(GuidOf(*key), record);
  if (code == kSuccess) *answer = AnswerOf<Native>(record);
  return code;
}

// The records of a call that adds something.
template <typename Native, typename Record>
Code InputOf(HANDLE engine, const Native* native, PSECURITY_DESCRIPTOR sd, Record& record,
             Bytes& descriptor) {
  if (engine == nullptr) return kInvalidHandle;
  if (const Code code = RecordOf(native, record)) return code;
  return BytesOfDescriptor(sd, descriptor);
}

ChangeCallback NativeCallback(FWPM_FILTER_CHANGE_CALLBACK0 callback, void* context) {
  return [callback, context](const FilterChange& change) {
    FWPM_FILTER_CHANGE0 native{};
    native.changeType = change.added ? FWPM_CHANGE_ADD : FWPM_CHANGE_DELETE;
    native.filterKey = NativeOf(change.key);
    native.filterId = change.id;
    callback(context, &native);
  };
}

// Takes a listener out of the session; null if it is not there.
std::unique_ptr<FilterChangeListener> TakeListener(EngineSession& session, HANDLE handle) {
  const GuardLock lock(session.guard);
  const auto found = std::find_if(session.listeners.begin(), session.listeners.end(),
                                  [&](const auto& listener) { return listener.get() == handle; });
  if (found == session.listeners.end()) return nullptr;
  std::unique_ptr<FilterChangeListener> listener = std::move(*found);
  session.listeners.erase(found);
  return listener;
}

}  // namespace
}  // namespace simulation

using namespace simulation;  // NOLINT(google-build-using-namespace): the exports are C functions.

extern "C" {

DWORD WINAPI FwpmEngineOpen0(const wchar_t* server, UINT32 authentication,
                             SEC_WINNT_AUTH_IDENTITY_W* /*identity*/, const FWPM_SESSION0* session,
                             HANDLE* engine) {
  if (engine == nullptr) return kNullPointer;
  if (server != nullptr) return kNotSupported;
  if (authentication != RPC_C_AUTHN_WINNT && authentication != RPC_C_AUTHN_DEFAULT) {
    return RPC_S_UNKNOWN_AUTHN_SERVICE;
  }
  SessionArguments arguments;
  arguments.caller = CallerOfEnvironment();
  if (session != nullptr) {
    if (session->displayData.name != nullptr) arguments.name = session->displayData.name;
    arguments.flags = session->flags;
    arguments.transaction_wait_ms = session->txnWaitTimeoutInMSec;
  }
  auto opened = std::make_unique<EngineSession>();
  const Code code = EngineClient::Open(arguments, opened->client);
  if (code == kSuccess) *engine = opened.release();
  return code;
}

DWORD WINAPI FwpmEngineClose0(HANDLE engine) {
  if (engine == nullptr) return kSuccess;
  const std::unique_ptr<EngineSession> session(&SessionOf(engine));
  // BFE ends the session's subscriptions with its pipe, and then the listeners can be waited for.
  session->client.reset();
  return kSuccess;
}

DWORD WINAPI FwpmProviderAdd0(HANDLE engine, const FWPM_PROVIDER0* provider,
                              PSECURITY_DESCRIPTOR sd) {
  Provider record;
  Bytes descriptor;
  if (const Code code = InputOf(engine, provider, sd, record, descriptor)) return code;
  return ClientOf(engine).AddProvider(record, descriptor);
}

DWORD WINAPI FwpmProviderDeleteByKey0(HANDLE engine, const GUID* key) {
  return Delete(engine, TargetKind::kProvider, key);
}

DWORD WINAPI FwpmProviderGetByKey0(HANDLE engine, const GUID* key, FWPM_PROVIDER0** provider) {
  return Get(engine, &EngineClient::GetProvider, key, provider);
}

DWORD WINAPI FwpmProviderSetSecurityInfoByKey0(HANDLE engine, const GUID* key,
                                               SECURITY_INFORMATION parts, const SID* /*owner*/,
                                               const SID* /*group*/, const ACL* dacl,
                                               const ACL* /*sacl*/) {
  return SetDacl(engine, TargetKind::kProvider, key, parts, dacl);
}

DWORD WINAPI FwpmSubLayerAdd0(HANDLE engine, const FWPM_SUBLAYER0* sublayer,
                              PSECURITY_DESCRIPTOR sd) {
  Sublayer record;
  Bytes descriptor;
  if (const Code code = InputOf(engine, sublayer, sd, record, descriptor)) return code;
  return ClientOf(engine).AddSublayer(record, descriptor);
}

DWORD WINAPI FwpmSubLayerDeleteByKey0(HANDLE engine, const GUID* key) {
  return Delete(engine, TargetKind::kSublayer, key);
}

DWORD WINAPI FwpmSubLayerGetByKey0(HANDLE engine, const GUID* key, FWPM_SUBLAYER0** sublayer) {
  return Get(engine, &EngineClient::GetSublayer, key, sublayer);
}

DWORD WINAPI FwpmSubLayerSetSecurityInfoByKey0(HANDLE engine, const GUID* key,
                                               SECURITY_INFORMATION parts, const SID* /*owner*/,
                                               const SID* /*group*/, const ACL* dacl,
                                               const ACL* /*sacl*/) {
  return SetDacl(engine, TargetKind::kSublayer, key, parts, dacl);
}

DWORD WINAPI FwpmFilterAdd0(HANDLE engine, const FWPM_FILTER0* filter, PSECURITY_DESCRIPTOR sd,
                            UINT64* id) {
  Filter record;
  Bytes descriptor;
  if (const Code code = InputOf(engine, filter, sd, record, descriptor)) return code;
  std::uint64_t added = 0;
  const Code code = ClientOf(engine).AddFilter(record, descriptor, added);
  if (code == kSuccess && id != nullptr) *id = added;
  return code;
}

DWORD WINAPI FwpmFilterDeleteByKey0(HANDLE engine, const GUID* key) {
  return Delete(engine, TargetKind::kFilter, key);
}

DWORD WINAPI FwpmFilterGetByKey0(HANDLE engine, const GUID* key, FWPM_FILTER0** filter) {
  return Get(engine, &EngineClient::GetFilter, key, filter);
}

DWORD WINAPI FwpmFilterSetSecurityInfoByKey0(HANDLE engine, const GUID* key,
                                             SECURITY_INFORMATION parts, const SID* /*owner*/,
                                             const SID* /*group*/, const ACL* dacl,
                                             const ACL* /*sacl*/) {
  return SetDacl(engine, TargetKind::kFilter, key, parts, dacl);
}

DWORD WINAPI FwpmFilterCreateEnumHandle0(HANDLE engine,
                                         const FWPM_FILTER_ENUM_TEMPLATE0* enum_template,
                                         HANDLE* enumeration) {
  if (engine == nullptr) return kInvalidHandle;
  if (enumeration == nullptr) return kNullPointer;
  if (enum_template != nullptr) return kNotSupported;
  std::uint64_t number = 0;
  const Code code = ClientOf(engine).OpenEnum(number);
  if (code == kSuccess) *enumeration = reinterpret_cast<HANDLE>(number);
  return code;
}

DWORD WINAPI FwpmFilterEnum0(HANDLE engine, HANDLE enumeration, UINT32 requested,
                             FWPM_FILTER0*** entries, UINT32* returned) {
  if (engine == nullptr) return kInvalidHandle;
  if (entries == nullptr || returned == nullptr) return kNullPointer;
  std::vector<Filter> filters;
  const auto number = reinterpret_cast<std::uint64_t>(enumeration);
  const Code code = ClientOf(engine).NextFilters(number, requested, filters);
  if (code != kSuccess) return code;
  *entries = AnswerOf(filters);
  *returned = static_cast<UINT32>(filters.size());
  return kSuccess;
}

DWORD WINAPI FwpmFilterDestroyEnumHandle0(HANDLE engine, HANDLE enumeration) {
  if (engine == nullptr) return kInvalidHandle;
  return ClientOf(engine).CloseEnum(reinterpret_cast<std::uint64_t>(enumeration));
}

DWORD WINAPI FwpmFilterSubscribeChanges0(HANDLE engine,
                                         const FWPM_FILTER_SUBSCRIPTION0* subscription,
                                         FWPM_FILTER_CHANGE_CALLBACK0 callback, void* context,
                                         HANDLE* change_handle) {
  if (engine == nullptr) return kInvalidHandle;
  if (subscription == nullptr || callback == nullptr || change_handle == nullptr) {
    return kNullPointer;
  }
  if (subscription->enumTemplate != nullptr) return kNotSupported;
  EngineSession& session = SessionOf(engine);
  std::uint64_t number = 0;
  if (const Code code = session.client->Subscribe(subscription->flags, number)) return code;
  std::unique_ptr<FilterChangeListener> listener;
  const Code code =
      FilterChangeListener::Start(number, NativeCallback(callback, context), listener);
  if (code != kSuccess) {
    (void)session.client->Unsubscribe(number);
    return code;
  }
  const GuardLock lock(session.guard);
  *change_handle = listener.get();
  session.listeners.push_back(std::move(listener));
  return kSuccess;
}

DWORD WINAPI FwpmFilterUnsubscribeChanges0(HANDLE engine, HANDLE change_handle) {
  if (engine == nullptr) return kInvalidHandle;
  EngineSession& session = SessionOf(engine);
  const std::unique_ptr<FilterChangeListener> listener = TakeListener(session, change_handle);
  if (listener == nullptr) return kInvalidHandle;
  // The listener's end, on return, waits for a running callback. If BFE is gone its pipe is too.
  return session.client->Unsubscribe(listener->subscription());
}

DWORD WINAPI FwpmTransactionBegin0(HANDLE engine, UINT32 flags) {
  return engine == nullptr ? kInvalidHandle : ClientOf(engine).Begin(flags);
}

DWORD WINAPI FwpmTransactionCommit0(HANDLE engine) {
  return engine == nullptr ? kInvalidHandle : ClientOf(engine).Commit();
}

DWORD WINAPI FwpmTransactionAbort0(HANDLE engine) {
  return engine == nullptr ? kInvalidHandle : ClientOf(engine).Abort();
}

DWORD WINAPI FwpmGetAppIdFromFileName0(const wchar_t* file_name, FWP_BYTE_BLOB** app_id) {
  if (file_name == nullptr || app_id == nullptr) return kNullPointer;
  Bytes bytes;
  const Code code = AppIdOfExistingFile(file_name, bytes);
  if (code == kSuccess) *app_id = AnswerOf(bytes);
  return code;
}

void WINAPI FwpmFreeMemory0(void** memory) {
  if (memory == nullptr) return;
  FreeOutput(*memory);
  *memory = nullptr;
}

}  // extern "C"

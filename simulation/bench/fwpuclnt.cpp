// The library that stands for the platform's fwpuclnt.dll under Wine: the exported functions of
// the filtering platform's management interface, served by the bench's BFE.
//
// It exports what the programs of this project call and no more; a program that imports anything
// else doesn't start. What it knows but does not do (enumeration templates, other machines, parts
// of a security descriptor other than the access list) it refuses with "not supported".
#include <windows.h>

#include <fwpmu.h>

#include <memory>
#include <vector>

#include "simulation/bench/app_id.h"
#include "simulation/bench/engine_session.h"
#include "simulation/bench/wfp_input.h"
#include "simulation/bench/wfp_output.h"

namespace simulation {
namespace {

using kestrelon::platform::kInvalidHandle;
using kestrelon::platform::kNotSupported;
using kestrelon::platform::kNullPointer;
using kestrelon::platform::kSuccess;
using kestrelon::platform::kTypeMismatch;

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

DWORD WINAPI FwpmEngineSetOption0(HANDLE engine, FWPM_ENGINE_OPTION option,
                                  const FWP_VALUE0* value) {
  if (engine == nullptr) return kInvalidHandle;
  if (value == nullptr) return kNullPointer;
  if (value->type != FWP_UINT32) return kTypeMismatch;
  return ClientOf(engine).SetOption(static_cast<std::uint32_t>(option), value->uint32);
}

DWORD WINAPI FwpmEngineGetOption0(HANDLE engine, FWPM_ENGINE_OPTION option, FWP_VALUE0** value) {
  if (engine == nullptr) return kInvalidHandle;
  if (value == nullptr) return kNullPointer;
  std::uint32_t number = 0;
  const Code code = ClientOf(engine).GetOption(static_cast<std::uint32_t>(option), number);
  if (code == kSuccess) *value = AnswerOf(number);
  return code;
}

DWORD WINAPI FwpmLayerGetByKey0(HANDLE engine, const GUID* key, FWPM_LAYER0** layer) {
  if (engine == nullptr) return kInvalidHandle;
  if (key == nullptr || layer == nullptr) return kNullPointer;
  std::uint16_t id = 0;
  const Code code = ClientOf(engine).GetLayerId(GuidOf(*key), id);
  if (code == kSuccess) *layer = AnswerOfLayer(*key, id);
  return code;
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

// The filtering engine's management interface, in plain records.
//
// Calls run in the calling thread and block on the engine; the transaction lock is waited for as
// long as the session was opened with. Inputs are not kept after a call returns.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/codes.h"
#include "platform/security.h"
#include "platform/wfp_records.h"

namespace kestrelon::platform {

// An open session; 0 while closed. Owned by filtering/filter_engine.h, which closes it.
using EngineHandle = std::uintptr_t;
using SubscriptionHandle = std::uintptr_t;
using EnumHandle = std::uintptr_t;

struct SessionOptions {
  std::wstring name;
  std::uint32_t flags = 0;  // kSessionDynamic or 0
  std::uint32_t transaction_wait_ms = 0;
};

[[nodiscard]] Code OpenEngineSession(const SessionOptions& options, EngineHandle& engine);
Code CloseEngineSession(EngineHandle engine);

// `descriptor` may be empty: the object then inherits the access of its container.
[[nodiscard]] Code AddProvider(EngineHandle engine, const Provider& provider,
                               const SecurityDescriptor& descriptor);
[[nodiscard]] Code AddSublayer(EngineHandle engine, const Sublayer& sublayer,
                               const SecurityDescriptor& descriptor);
[[nodiscard]] Code AddFilter(EngineHandle engine, const Filter& filter,
                             const SecurityDescriptor& descriptor, std::uint64_t& id);

[[nodiscard]] Code DeleteProvider(EngineHandle engine, const Guid& key);
[[nodiscard]] Code DeleteSublayer(EngineHandle engine, const Guid& key);
[[nodiscard]] Code DeleteFilter(EngineHandle engine, const Guid& key);

// Read an object by its key.
[[nodiscard]] Code GetSublayer(EngineHandle engine, const Guid& key, Sublayer& sublayer);
[[nodiscard]] Code GetFilter(EngineHandle engine, const Guid& key, Filter& filter);

// Replace an object's DACL by the descriptor's; an empty descriptor, or one without a DACL, sets
// the null DACL.
Code SetProviderDacl(EngineHandle engine, const Guid& key, const SecurityDescriptor& descriptor);
Code SetSublayerDacl(EngineHandle engine, const Guid& key, const SecurityDescriptor& descriptor);
Code SetFilterDacl(EngineHandle engine, const Guid& key, const SecurityDescriptor& descriptor);

// `flags` is 0 or kTransactionReadOnly.
[[nodiscard]] Code BeginTransaction(EngineHandle engine, std::uint32_t flags);
[[nodiscard]] Code CommitTransaction(EngineHandle engine);
Code AbortTransaction(EngineHandle engine);

// Enumerates all filters as they are now. Each fetch replaces `filters` by at most `count`
// further ones; fewer than `count` means the end.
[[nodiscard]] Code OpenFilterEnum(EngineHandle engine, EnumHandle& enumeration);
[[nodiscard]] Code NextFilters(EngineHandle engine, EnumHandle enumeration, std::uint32_t count,
                               std::vector<Filter>& filters);
Code CloseFilterEnum(EngineHandle engine, EnumHandle enumeration);

// Has `callback(context)` called on a thread of the engine's after another session added or
// deleted a filter (`flags`: kNotifyOnAdd, kNotifyOnDelete). The callback must not call the engine.
[[nodiscard]] Code SubscribeFilterChanges(EngineHandle engine, std::uint32_t flags,
                                          void (*callback)(void*), void* context,
                                          SubscriptionHandle& subscription);
// Waits for a running callback.
Code UnsubscribeFilterChanges(EngineHandle engine, SubscriptionHandle subscription);

// The application id of an existing file.
[[nodiscard]] Code AppIdOfFile(const std::wstring& path, Bytes& app_id);

// A fresh random identifier.
[[nodiscard]] Code NewGuid(Guid& guid);

}  // namespace kestrelon::platform

// The one open session with the filtering engine and what hangs on it: the provider and sublayer
// that own all of the product's filters, and the change subscription.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/guard.h"
#include "base/guid.h"
#include "platform/wait.h"
#include "platform/wfp.h"

namespace kestrelon {

// What a net event later says of a filter.
enum class FilterKind : std::uint8_t { kDefault = 0, kApplication = 1, kRule = 2, kLoopback = 3 };

struct FilterTag {
  std::uint32_t direction = 0;  // 0 outbound, 1 inbound
  FilterKind kind = FilterKind::kDefault;
  std::wstring tag;  // service of a service block, label or path of an application, rule's name
};

// From the id that the engine gave a filter.
using FilterTagTable = std::unordered_map<std::uint64_t, FilterTag>;

// From a filter's key to its signature (filter_signature.h), as read back from the engine. Keys
// have the order of their texts.
using FilterRecordTable = std::map<Guid, std::string>;

// A session with the engine. The process has one, TheEngine; the removal of filters opens a second,
// short-lived one.
//
// EngineGuard is held for the whole of a transaction. RecordGuard may be taken under it, never the
// other way round.
struct FilterEngine {
  Guard EngineGuard{"EngineGuard", GuardRank::kEngine};
  Guard RecordGuard{"RecordGuard", GuardRank::kRecord};

  platform::EngineHandle handle GUARDED_BY(EngineGuard) = 0;  // 0 while closed
  platform::SubscriptionHandle change_subscription GUARDED_BY(EngineGuard) = 0;
  FilterRecordTable FilterRecord GUARDED_BY(EngineGuard);
  // How many boot-time filters the audit is to find; negative while that isn't known.
  int BootExpected GUARDED_BY(EngineGuard) = -1;
  // Keys of the filters added by the running transaction, in order.
  std::vector<Guid> added_keys GUARDED_BY(EngineGuard);

  FilterTagTable FilterTags GUARDED_BY(RecordGuard);

  // Set on each change of a filter by somebody else; may be null. Set once before opening.
  platform::Event* change_event = nullptr;
};

// The process's own session, opened by the core.
extern FilterEngine TheEngine;

// Opens the session, makes sure of provider and sublayer and subscribes to changes. Does nothing
// on an open one. On failure the session is closed.
[[nodiscard]] bool OpenEngine(FilterEngine& engine, std::wstring& error)
    EXCLUDES(engine.EngineGuard);
void CloseEngine(FilterEngine& engine) EXCLUDES(engine.EngineGuard);
[[nodiscard]] bool EngineIsOpen(FilterEngine& engine) EXCLUDES(engine.EngineGuard);

// Whether a session is open, for what needs one.
[[nodiscard]] bool RequireSession(const FilterEngine& engine, std::wstring& error)
    REQUIRES(engine.EngineGuard);

// Number of filters in the record.
[[nodiscard]] std::size_t FilterCount(FilterEngine& engine) EXCLUDES(engine.EngineGuard);

// Adds provider and sublayer, or, as LocalSystem, locks those that exist. Runs before every
// transaction: so an older install or a descriptor reset by somebody comes right by itself.
[[nodiscard]] bool EnsureProviderAndSublayer(FilterEngine& engine, std::wstring& error)
    REQUIRES(engine.EngineGuard);

// Makes a sublayer that somebody gave another weight anew: below others its permits and blocks
// could be overruled. Inside a transaction that has deleted the regular filters; takes the
// boot-time ones along, which every application installs again. A sublayer that can't be deleted
// stays as it is; false only when it then could not be added.
[[nodiscard]] bool RestoreSublayerWeight(FilterEngine& engine, std::wstring& error)
    REQUIRES(engine.EngineGuard);

// Reopens filters, and with the flag sublayer and provider, to the administrator who removes them;
// as LocalSystem there is no need. Not inside a transaction. Results are not checked: a deletion
// that then fails reports the error.
void UnlockForRemoval(FilterEngine& engine, const std::vector<Guid>& keys,
                      bool with_provider_and_sublayer) REQUIRES(engine.EngineGuard);

}  // namespace kestrelon

// The objects that the engine service holds, with a log by which a transaction is undone.
//
// The store checks nothing; its caller does. Not thread-safe.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <variant>
#include <vector>

#include "simulation/engine/access.h"
#include "simulation/engine/kernel_filters.h"

namespace simulation {

using SessionId = std::uint64_t;

// Of the built-in sublayer. The true one isn't published; the middle of the range stands for it.
inline constexpr std::uint16_t kUniversalWeight = 0x8000;

enum class ObjectKind : std::uint8_t { kProvider, kSublayer, kFilter };
inline constexpr std::size_t kObjectKinds = 3;

enum class Lifetime : std::uint8_t { kDynamic, kStatic, kBootTime, kPersistent, kBuiltin };

// What every object has. Objects outlive restarts of the machine when persistent or boot-time.
struct ObjectHead {
  Lifetime lifetime = Lifetime::kStatic;
  SessionId session = 0;  // of a dynamic object
  std::shared_ptr<const ObjectSecurity> security;

  [[nodiscard]] bool stored() const {
    return lifetime == Lifetime::kPersistent || lifetime == Lifetime::kBootTime;
  }
};

struct StoredProvider {
  platform::Provider record;
  ObjectHead head;
  std::size_t references = 0;  // sublayers and filters that name it
};

struct StoredSublayer {
  platform::Sublayer record;
  ObjectHead head;
  std::size_t references = 0;  // filters in it
};

struct StoredFilter {
  EnforcedFilterPtr filter;
  ObjectHead head;
};

using StoredObject = std::variant<StoredProvider, StoredSublayer, StoredFilter>;

// All objects of a moment, in an order in which they can be put back.
struct ObjectList {
  std::vector<StoredProvider> providers;
  std::vector<StoredSublayer> sublayers;
  std::vector<StoredFilter> filters;
};

class ObjectStore {
 public:
  struct Change {
    bool added = false;  // otherwise deleted
    StoredObject object;
  };

  // Holds the built-in objects alone.
  ObjectStore();

  [[nodiscard]] const StoredProvider* FindProvider(const Guid& key) const;
  [[nodiscard]] const StoredSublayer* FindSublayer(const Guid& key) const;
  [[nodiscard]] const StoredFilter* FindFilter(const Guid& key) const;
  [[nodiscard]] const std::map<Guid, StoredFilter>& filters() const { return filters_; }

  void Insert(StoredObject object);
  // The object must be there and have no references.
  void Erase(ObjectKind kind, const Guid& key);

  // The weight nearest to `wanted` that no sublayer has.
  [[nodiscard]] std::uint16_t FreeSublayerWeight(std::uint16_t wanted) const;

  [[nodiscard]] const ObjectSecurity& container(ObjectKind kind) const;
  // Takes over what another store's containers grant.
  void KeepContainers(const ObjectStore& other) { containers_ = other.containers_; }
  void SetContainerDacl(ObjectKind kind, std::optional<std::vector<AccessEntry>> dacl);
  // The access list of an object that exists; not part of the log.
  void SetDacl(ObjectKind kind, const Guid& key, std::optional<std::vector<AccessEntry>> dacl);
  [[nodiscard]] const ObjectHead* FindHead(ObjectKind kind, const Guid& key) const;

  // Inserts and erasures since the last ForgetLog or Undo, in order.
  [[nodiscard]] const std::vector<Change>& log() const { return log_; }
  void ForgetLog() { log_.clear(); }
  void Undo();

  // Takes out the dynamic objects of a session, past the log; returns its filters.
  std::vector<StoredFilter> TakeDynamic(SessionId session);

  // All objects but the built-in ones as of the last ForgetLog or Undo.
  [[nodiscard]] ObjectList Committed() const;

 private:
  void Put(const StoredObject& object);
  StoredObject Take(ObjectKind kind, const Guid& key);
  void CountReferences(const StoredObject& object, bool added);

  std::map<Guid, StoredProvider> providers_;
  std::map<Guid, StoredSublayer> sublayers_;
  std::map<Guid, StoredFilter> filters_;
  std::set<std::uint16_t> sublayer_weights_;
  std::vector<ObjectSecurity> containers_;  // by ObjectKind
  std::vector<Change> log_;
};

}  // namespace simulation

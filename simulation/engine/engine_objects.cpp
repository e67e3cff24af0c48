// Adding, reading, deleting and locking objects.
#include <utility>

#include "simulation/engine/engine.h"
#include "simulation/engine/filter_rules.h"

namespace simulation {
namespace {

Lifetime LifetimeOf(bool persistent, bool dynamic) {
  if (persistent) return Lifetime::kPersistent;
  return dynamic ? Lifetime::kDynamic : Lifetime::kStatic;
}

Lifetime LifetimeOfFilter(const platform::Filter& filter, bool dynamic) {
  if ((filter.flags & platform::kFilterBootTime) != 0) return Lifetime::kBootTime;
  return LifetimeOf((filter.flags & platform::kFilterPersistent) != 0, dynamic);
}

Code NotFound(ObjectKind kind) {
  switch (kind) {
    case ObjectKind::kProvider:
      return platform::kProviderNotFound;
    case ObjectKind::kSublayer:
      return platform::kSublayerNotFound;
    default:
      return platform::kFilterNotFound;
  }
}

}  // namespace

Code Engine::PrepareObject(const Session& session, SessionId id, ObjectKind kind, Lifetime lifetime,
                           const platform::SecurityDescriptor& descriptor, ObjectHead& head) const {
  const ObjectSecurity& container = store_.container(kind);
  if (!Grants(container, session.token.sids, kRightAdd)) return platform::kAccessDenied;
  head.lifetime = lifetime;
  head.session = lifetime == Lifetime::kDynamic ? id : 0;
  // Undocumented: the code with which a dynamic session is refused what outlives it.
  if (session.dynamic && head.stored()) return platform::kDynamicSessionInProgress;
  ObjectSecurity given;
  if (!descriptor.empty() && !ParseDescriptor(descriptor, given)) {
    return platform::kInvalidSecurityDescriptor;
  }
  head.security = std::make_shared<ObjectSecurity>(
      SecurityOfNewObject(descriptor.empty() ? nullptr : &given, session.token, container));
  return platform::kSuccess;
}

Code Engine::CheckLink(const Session& session, const ObjectHead& from, const ObjectHead& to) const {
  if (!Grants(*to.security, session.token.sids, kRightAddLink)) return platform::kAccessDenied;
  if (to.lifetime == Lifetime::kBuiltin || to.lifetime == Lifetime::kPersistent) {
    return platform::kSuccess;
  }
  // Undocumented: what a boot-time filter may refer to. Here only what is as lasting as it is.
  if (from.stored()) return platform::kLifetimeMismatch;
  const bool own = to.lifetime != Lifetime::kDynamic ||
                   (from.lifetime == Lifetime::kDynamic && from.session == to.session);
  return own ? platform::kSuccess : platform::kLifetimeMismatch;
}

Code Engine::CheckProviderLink(const Session& session, const ObjectHead& head,
                               const std::optional<Guid>& provider) const {
  if (!provider) return platform::kSuccess;
  const StoredProvider* found = store_.FindProvider(*provider);
  if (found == nullptr) return platform::kProviderNotFound;
  return CheckLink(session, head, found->head);
}

Code Engine::CheckFilterLinks(const Session& session, const ObjectHead& head,
                              const platform::Filter& filter) const {
  if (const Code code = CheckProviderLink(session, head, filter.provider)) return code;
  const StoredSublayer* sublayer = store_.FindSublayer(filter.sublayer);
  if (sublayer == nullptr) return platform::kSublayerNotFound;
  if (const Code code = CheckLink(session, head, sublayer->head)) return code;
  // Undocumented: whether having no provider at all counts as another provider. Here it does.
  const bool foreign =
      sublayer->head.lifetime != Lifetime::kBuiltin && sublayer->record.provider != filter.provider;
  return head.stored() && foreign ? platform::kLifetimeMismatch : platform::kSuccess;
}

// Undocumented: the order of mistakes. Here a taken key is told before a missing right to link, so
// that who may not link to a locked object still finds out that it is there.
Code Engine::AddProvider(SessionId session, const platform::Provider& provider,
                         const platform::SecurityDescriptor& descriptor) {
  std::unique_lock lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = Enter(session, Need::kWrite, lock, entered)) return code;
  if (provider.name.empty()) return platform::kNullDisplayName;
  if ((provider.flags & ~platform::kProviderPersistent) != 0) return platform::kInvalidFlags;
  StoredProvider stored{.record = provider, .head = {}, .references = 0};
  const Lifetime lifetime = LifetimeOf(provider.flags != 0, entered->dynamic);
  if (const Code code = PrepareObject(*entered, session, ObjectKind::kProvider, lifetime,
                                      descriptor, stored.head)) {
    return code;
  }
  if (store_.FindProvider(provider.key) != nullptr) return platform::kObjectExists;
  if (stored.record.key == Guid{}) stored.record.key = MakeKey();
  store_.Insert(std::move(stored));
  CommitImplicit(session);
  return platform::kSuccess;
}

Code Engine::AddSublayer(SessionId session, const platform::Sublayer& sublayer,
                         const platform::SecurityDescriptor& descriptor) {
  std::unique_lock lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = Enter(session, Need::kWrite, lock, entered)) return code;
  if (sublayer.name.empty()) return platform::kNullDisplayName;
  if ((sublayer.flags & ~platform::kSublayerPersistent) != 0) return platform::kInvalidFlags;
  StoredSublayer stored{.record = sublayer, .head = {}, .references = 0};
  const Lifetime lifetime = LifetimeOf(sublayer.flags != 0, entered->dynamic);
  if (const Code code = PrepareObject(*entered, session, ObjectKind::kSublayer, lifetime,
                                      descriptor, stored.head)) {
    return code;
  }
  if (store_.FindSublayer(sublayer.key) != nullptr) return platform::kObjectExists;
  if (const Code code = CheckProviderLink(*entered, stored.head, sublayer.provider)) return code;
  if (stored.record.key == Guid{}) stored.record.key = MakeKey();
  // Undocumented: whether the weight is read back as asked for or as given. Here as given.
  stored.record.weight = store_.FreeSublayerWeight(sublayer.weight);
  store_.Insert(std::move(stored));
  CommitImplicit(session);
  return platform::kSuccess;
}

Code Engine::AddFilter(SessionId session, const platform::Filter& filter,
                       const platform::SecurityDescriptor& descriptor, std::uint64_t& id) {
  std::unique_lock lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = Enter(session, Need::kWrite, lock, entered)) return code;
  if (const Code code = ValidateFilter(filter)) return code;
  platform::Filter record = filter;
  if (record.sublayer == Guid{}) record.sublayer = kUniversalSublayer;
  ObjectHead head;
  const Lifetime lifetime = LifetimeOfFilter(record, entered->dynamic);
  if (const Code code =
          PrepareObject(*entered, session, ObjectKind::kFilter, lifetime, descriptor, head)) {
    return code;
  }
  if (store_.FindFilter(record.key) != nullptr) return platform::kObjectExists;
  if (const Code code = CheckFilterLinks(*entered, head, record)) return code;
  if (record.key == Guid{}) record.key = MakeKey();
  record.id = next_filter_id_++;
  id = record.id;
  const std::uint16_t weight = store_.FindSublayer(record.sublayer)->record.weight;
  store_.Insert(StoredFilter{MakeEnforced(std::move(record), weight), std::move(head)});
  CommitImplicit(session);
  return platform::kSuccess;
}

// Keys as a generator would give them: never met twice, and none of anybody's own.
Guid Engine::MakeKey() {
  const std::uint64_t number = next_key_++;
  Guid key = kestrelon::MakeGuid("f1a7e0c4-0000-4000-8000-000000000000");
  for (std::size_t i = 0; i < 6; ++i) {
    key.data4[7 - i] = static_cast<std::uint8_t>(number >> (8 * i));
  }
  return key;
}

Code Engine::CheckDelete(const Session& session, SessionId id, const ObjectHead& head,
                         std::size_t references) const {
  if (head.lifetime == Lifetime::kBuiltin) return platform::kBuiltinObject;
  if (!Grants(*head.security, session.token.sids, kRightDelete)) return platform::kAccessDenied;
  if (head.lifetime == Lifetime::kDynamic && head.session != id) return platform::kWrongSession;
  if (session.dynamic && head.lifetime != Lifetime::kDynamic) {
    return platform::kDynamicSessionInProgress;
  }
  return references == 0 ? platform::kSuccess : platform::kInUse;
}

Code Engine::DeleteObject(SessionId id, ObjectKind kind, const Guid& key) {
  std::unique_lock lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = Enter(id, Need::kWrite, lock, entered)) return code;
  const ObjectHead* head = store_.FindHead(kind, key);
  if (head == nullptr) return NotFound(kind);
  std::size_t references = 0;
  if (kind == ObjectKind::kProvider) references = store_.FindProvider(key)->references;
  if (kind == ObjectKind::kSublayer) references = store_.FindSublayer(key)->references;
  if (const Code code = CheckDelete(*entered, id, *head, references)) return code;
  store_.Erase(kind, key);
  CommitImplicit(id);
  return platform::kSuccess;
}

Code Engine::DeleteProvider(SessionId session, const Guid& key) {
  return DeleteObject(session, ObjectKind::kProvider, key);
}

Code Engine::DeleteSublayer(SessionId session, const Guid& key) {
  return DeleteObject(session, ObjectKind::kSublayer, key);
}

Code Engine::DeleteFilter(SessionId session, const Guid& key) {
  return DeleteObject(session, ObjectKind::kFilter, key);
}

Code Engine::SetDacl(SessionId id, ObjectKind kind, const Guid& key,
                     const platform::SecurityDescriptor& descriptor) {
  std::unique_lock lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = FindSession(id, entered)) return code;
  if (InTransaction(id)) return platform::kTransactionInProgress;
  if (const Code code = Enter(id, Need::kWrite, lock, entered)) return code;
  const bool is_container = key == Guid{};
  const ObjectHead* head = is_container ? nullptr : store_.FindHead(kind, key);
  if (!is_container && head == nullptr) return NotFound(kind);
  const ObjectSecurity& current = is_container ? store_.container(kind) : *head->security;
  if (!Grants(current, entered->token.sids, kRightWriteDac)) return platform::kAccessDenied;
  const bool dynamic = head != nullptr && head->lifetime == Lifetime::kDynamic;
  if (entered->dynamic && !dynamic) return platform::kDynamicSessionInProgress;
  ObjectSecurity given;
  if (!descriptor.empty() && !ParseDescriptor(descriptor, given)) {
    return platform::kInvalidSecurityDescriptor;
  }
  // Undocumented: whether the container's entries join a list that is set later, which would undo
  // a lock at once. Here the list stands as it is given.
  if (is_container) {
    store_.SetContainerDacl(kind, std::move(given.dacl));
  } else {
    store_.SetDacl(kind, key, std::move(given.dacl));
  }
  return platform::kSuccess;
}

Code Engine::SetProviderDacl(SessionId session, const Guid& key,
                             const platform::SecurityDescriptor& descriptor) {
  return SetDacl(session, ObjectKind::kProvider, key, descriptor);
}

Code Engine::SetSublayerDacl(SessionId session, const Guid& key,
                             const platform::SecurityDescriptor& descriptor) {
  return SetDacl(session, ObjectKind::kSublayer, key, descriptor);
}

Code Engine::SetFilterDacl(SessionId session, const Guid& key,
                           const platform::SecurityDescriptor& descriptor) {
  return SetDacl(session, ObjectKind::kFilter, key, descriptor);
}

template <typename Copy>
Code Engine::GetObject(SessionId id, ObjectKind kind, const Guid& key, const Copy& copy) {
  std::unique_lock lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = Enter(id, Need::kRead, lock, entered)) return code;
  const ObjectHead* head = store_.FindHead(kind, key);
  if (head == nullptr) return NotFound(kind);
  if (!Grants(*head->security, entered->token.sids, kRightRead)) return platform::kAccessDenied;
  copy();
  return platform::kSuccess;
}

Code Engine::GetProvider(SessionId session, const Guid& key, platform::Provider& provider) {
  return GetObject(session, ObjectKind::kProvider, key,
                   [&] { provider = store_.FindProvider(key)->record; });
}

Code Engine::GetSublayer(SessionId session, const Guid& key, platform::Sublayer& sublayer) {
  return GetObject(session, ObjectKind::kSublayer, key,
                   [&] { sublayer = store_.FindSublayer(key)->record; });
}

Code Engine::GetFilter(SessionId session, const Guid& key, platform::Filter& filter) {
  return GetObject(session, ObjectKind::kFilter, key,
                   [&] { filter = *store_.FindFilter(key)->filter->record; });
}

}  // namespace simulation

// Sessions, transactions, enumerations and subscriptions.
#include "simulation/engine/engine.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace simulation {
namespace {

constexpr std::uint32_t kDefaultWaitMs = 15000;
constexpr std::uint32_t kInfiniteWait = 0xFFFFFFFF;
constexpr std::uint32_t kNotifyFlags = platform::kNotifyOnAdd | platform::kNotifyOnDelete;

}  // namespace

Engine::Engine() = default;
Engine::~Engine() = default;

Code Engine::OpenSession(const platform::SessionOptions& options, const Caller& caller,
                         SessionId& session) {
  const std::lock_guard lock(mutex_);
  if (!running_) return platform::kEndpointNotRegistered;
  if ((options.flags & ~platform::kSessionDynamic) != 0) return platform::kInvalidFlags;
  Session opened;
  opened.token = TokenOf(caller);
  const bool administrator = caller.local_system || caller.administrator;
  if (!administrator && !Grants(DefaultSecurity(), opened.token.sids, kRightOpen)) {
    return platform::kAccessDenied;
  }
  opened.dynamic = (options.flags & platform::kSessionDynamic) != 0;
  opened.wait_ms = options.transaction_wait_ms == 0 ? kDefaultWaitMs : options.transaction_wait_ms;
  session = next_handle_++;
  sessions_.emplace(session, std::move(opened));
  return platform::kSuccess;
}

Code Engine::CloseSession(SessionId session) {
  if (session == 0) return platform::kSuccess;
  std::map<SubscriptionId, Subscription> subscriptions;
  {
    const std::lock_guard lock(mutex_);
    const auto found = sessions_.find(session);
    if (found == sessions_.end()) return platform::kInvalidHandle;
    if (writer_ == session) store_.Undo();
    EndTransaction(session);
    // Nobody else's transaction can have touched this session's dynamic objects.
    for (const StoredFilter& filter : store_.TakeDynamic(session)) {
      kernel_.Remove(filter.filter);
      Notify(session, false, filter);
    }
    subscriptions = std::move(found->second.subscriptions);
    for (const auto& [id, subscription] : subscriptions) notifier_.Remove(id);
    sessions_.erase(found);
  }
  for (const auto& [id, subscription] : subscriptions) notifier_.WaitForCallback(id);
  return platform::kSuccess;
}

Code Engine::FindSession(SessionId id, Session*& session) {
  if (!running_) return platform::kEndpointNotRegistered;
  const auto found = sessions_.find(id);
  if (found == sessions_.end()) return platform::kInvalidHandle;
  // Undocumented: a handle from before a restart of the service may answer codes of the remote
  // call instead.
  if (found->second.aborted) return platform::kSessionAborted;
  session = &found->second;
  return platform::kSuccess;
}

Code Engine::Enter(SessionId id, Need need, std::unique_lock<std::mutex>& lock, Session*& session) {
  if (const Code code = FindSession(id, session)) return code;
  if (need == Need::kWrite && readers_.contains(id)) return platform::kIncompatibleTransaction;
  // The session may be closed by another thread meanwhile, so it is looked up anew each time.
  const auto ready = [&] {
    return FindSession(id, session) != platform::kSuccess || MayRun(id, need);
  };
  if (session->wait_ms == kInfiniteWait) {
    transaction_ended_.wait(lock, ready);
  } else {
    const auto wait = std::chrono::milliseconds(session->wait_ms);
    if (!transaction_ended_.wait_for(lock, wait, ready)) return platform::kTransactionTimeout;
  }
  return FindSession(id, session);
}

// Undocumented: whether readers wait for a writer. Here they do, so that nobody but the writer
// ever sees what isn't committed.
bool Engine::MayRun(SessionId id, Need need) const {
  if (writer_ == id) return true;
  if (writer_ != 0) return false;
  return need == Need::kRead || readers_.size() == readers_.count(id);
}

Code Engine::Begin(SessionId session, std::uint32_t flags) {
  std::unique_lock lock(mutex_);
  if ((flags & ~platform::kTransactionReadOnly) != 0) return platform::kInvalidFlags;
  const bool read_only = flags != 0;
  Session* entered = nullptr;
  if (const Code code = FindSession(session, entered)) return code;
  if (InTransaction(session)) return platform::kTransactionInProgress;
  const std::uint32_t right = read_only ? kRightBeginRead : kRightBeginWrite;
  if (!Grants(DefaultSecurity(), entered->token.sids, right)) return platform::kAccessDenied;
  const Need need = read_only ? Need::kRead : Need::kWrite;
  if (const Code code = Enter(session, need, lock, entered)) return code;
  // Another thread of the same session may have begun one meanwhile.
  if (InTransaction(session)) return platform::kTransactionInProgress;
  if (read_only) {
    readers_.insert(session);
  } else {
    writer_ = session;
  }
  return platform::kSuccess;
}

Code Engine::Commit(SessionId session) {
  const std::lock_guard lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = FindSession(session, entered)) return code;
  if (!InTransaction(session)) return platform::kNoTransaction;
  if (writer_ == session) Publish(session);
  EndTransaction(session);
  return platform::kSuccess;
}

Code Engine::Abort(SessionId session) {
  const std::lock_guard lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = FindSession(session, entered)) return code;
  if (!InTransaction(session)) return platform::kNoTransaction;
  if (writer_ == session) store_.Undo();
  EndTransaction(session);
  return platform::kSuccess;
}

void Engine::EndTransaction(SessionId id) {
  if (writer_ == id) writer_ = 0;
  readers_.erase(id);
  transaction_ended_.notify_all();
}

void Engine::CommitImplicit(SessionId id) {
  if (writer_ != id) Publish(id);
}

void Engine::Publish(SessionId id) {
  for (const ObjectStore::Change& change : store_.log()) {
    const auto* filter = std::get_if<StoredFilter>(&change.object);
    if (filter == nullptr) continue;
    // Boot-time filters wait for the next start of the machine.
    if (filter->head.lifetime != Lifetime::kBootTime) {
      change.added ? kernel_.Add(filter->filter) : kernel_.Remove(filter->filter);
    }
    Notify(id, change.added, *filter);
  }
  store_.ForgetLog();
}

void Engine::Notify(SessionId origin, bool added, const StoredFilter& filter) {
  const platform::Filter& record = *filter.filter->record;
  const std::uint32_t kind = added ? platform::kNotifyOnAdd : platform::kNotifyOnDelete;
  for (const auto& [id, session] : sessions_) {
    if (id == origin || session.subscriptions.empty()) continue;
    if (!Grants(*filter.head.security, session.token.sids, kRightRead)) continue;
    for (const auto& [number, subscription] : session.subscriptions) {
      const auto* subscribed = std::get_if<ChangeSubscription>(&subscription);
      if (subscribed == nullptr || (subscribed->flags & kind) == 0) continue;
      const FilterChange change{.added = added, .key = record.key, .id = record.id};
      notifier_.Post(number, [callback = subscribed->callback, change] { callback(change); });
    }
  }
}

Code Engine::OpenFilterEnum(SessionId session, EnumId& enumeration) {
  std::unique_lock lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = Enter(session, Need::kRead, lock, entered)) return code;
  if (!Grants(store_.container(ObjectKind::kFilter), entered->token.sids, kRightEnum)) {
    return platform::kAccessDenied;
  }
  // Undocumented: whether an enumeration without a template shows boot-time and disabled filters.
  // Here it does, so that who wants to leave them out has to.
  Enumeration snapshot;
  snapshot.filters.reserve(store_.filters().size());
  for (const auto& [key, filter] : store_.filters()) {
    if (Grants(*filter.head.security, entered->token.sids, kRightRead)) {
      snapshot.filters.push_back(filter.filter->record);
    }
  }
  enumeration = next_handle_++;
  entered->enumerations.emplace(enumeration, std::move(snapshot));
  return platform::kSuccess;
}

Code Engine::NextFilters(SessionId session, EnumId enumeration, std::uint32_t count,
                         FilterList& filters) {
  const std::lock_guard lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = FindSession(session, entered)) return code;
  const auto found = entered->enumerations.find(enumeration);
  if (found == entered->enumerations.end()) return platform::kInvalidHandle;
  Enumeration& state = found->second;
  const std::size_t fetched = std::min<std::size_t>(count, state.filters.size() - state.next);
  const auto begin = state.filters.begin() + static_cast<std::ptrdiff_t>(state.next);
  filters.assign(begin, begin + static_cast<std::ptrdiff_t>(fetched));
  state.next += fetched;
  return platform::kSuccess;
}

Code Engine::CloseFilterEnum(SessionId session, EnumId enumeration) {
  const std::lock_guard lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = FindSession(session, entered)) return code;
  const bool closed = entered->enumerations.erase(enumeration) != 0;
  return closed ? platform::kSuccess : platform::kInvalidHandle;
}

Code Engine::SubscribeFilterChanges(SessionId session, std::uint32_t flags, ChangeCallback callback,
                                    SubscriptionId& subscription) {
  const std::lock_guard lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = FindSession(session, entered)) return code;
  if (InTransaction(session)) return platform::kTransactionInProgress;
  if (flags == 0 || (flags & ~kNotifyFlags) != 0) return platform::kInvalidFlags;
  if (!Grants(store_.container(ObjectKind::kFilter), entered->token.sids, kRightSubscribe)) {
    return platform::kAccessDenied;
  }
  subscription = Subscribe(*entered, ChangeSubscription{flags, std::move(callback)});
  return platform::kSuccess;
}

Code Engine::SubscribeNetEvents(SessionId session, NetEventCallback callback,
                                SubscriptionId& subscription) {
  const std::lock_guard lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = FindSession(session, entered)) return code;
  if (InTransaction(session)) return platform::kTransactionInProgress;
  // Nobody can set the access list of the events' container, so it is the engine's.
  if (!Grants(DefaultSecurity(), entered->token.sids, kRightSubscribe)) {
    return platform::kAccessDenied;
  }
  subscription = Subscribe(*entered, NetEventSubscription{std::move(callback)});
  return platform::kSuccess;
}

SubscriptionId Engine::Subscribe(Session& session, Subscription subscription) {
  const SubscriptionId id = next_handle_++;
  session.subscriptions.emplace(id, std::move(subscription));
  notifier_.Add(id);
  return id;
}

template <typename Kind>
Code Engine::Unsubscribe(SessionId session, SubscriptionId id) {
  Code code = platform::kSuccess;
  {
    const std::lock_guard lock(mutex_);
    Session* entered = nullptr;
    code = FindSession(session, entered);
    if (code == platform::kSuccess) {
      if (InTransaction(session)) return platform::kTransactionInProgress;
      const auto found = entered->subscriptions.find(id);
      if (found == entered->subscriptions.end() || !std::holds_alternative<Kind>(found->second)) {
        return platform::kObjectNotFound;
      }
      entered->subscriptions.erase(found);
      notifier_.Remove(id);
    }
  }
  // A session that the service's stop ended may still have a callback on its way.
  notifier_.WaitForCallback(id);
  return code;
}

Code Engine::UnsubscribeFilterChanges(SessionId session, SubscriptionId subscription) {
  return Unsubscribe<ChangeSubscription>(session, subscription);
}

Code Engine::UnsubscribeNetEvents(SessionId session, SubscriptionId subscription) {
  return Unsubscribe<NetEventSubscription>(session, subscription);
}

std::size_t Engine::open_sessions() const {
  const std::lock_guard lock(mutex_);
  return sessions_.size();
}

bool Engine::transaction_open() const {
  const std::lock_guard lock(mutex_);
  return writer_ != 0 || !readers_.empty();
}

}  // namespace simulation

// A model of the base filtering engine: objects with lifetimes and access lists, sessions,
// transactions, change notifications, and the verdict on a connection.
//
// It keeps two things apart, as the platform does: the engine service's store, which sessions
// read and change, and the filters that the kernel enforces, which follow the store at each commit
// and stay when the service stops. Every member function may be called from any thread. Calls
// answer with the platform's own codes; outputs are unchanged on failure.
//
// Where the platform's behaviour isn't documented, the model takes the reading under which more is
// blocked or refused; a comment beginning "Undocumented" stands beside each such place.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include "platform/codes.h"
#include "platform/wfp.h"
#include "simulation/engine/access.h"
#include "simulation/engine/connection.h"
#include "simulation/engine/kernel_filters.h"
#include "simulation/engine/net_event_options.h"
#include "simulation/engine/notifier.h"
#include "simulation/engine/object_store.h"
#include "simulation/engine/subscription.h"

namespace simulation {

using platform::Code;

using EnumId = std::uint64_t;

using FilterList = std::vector<std::shared_ptr<const platform::Filter>>;

class Engine {
 public:
  // A running engine with nothing but its built-in objects.
  Engine();
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // The caller's identity now decides all later access checks of the session.
  [[nodiscard]] Code OpenSession(const platform::SessionOptions& options, const Caller& caller,
                                 SessionId& session);
  // Aborts the session's transaction, drops its dynamic objects and ends its enumerations and
  // subscriptions; waits for a running callback.
  Code CloseSession(SessionId session);

  // An empty descriptor inherits the container's access list.
  [[nodiscard]] Code AddProvider(SessionId session, const platform::Provider& provider,
                                 const platform::SecurityDescriptor& descriptor);
  [[nodiscard]] Code AddSublayer(SessionId session, const platform::Sublayer& sublayer,
                                 const platform::SecurityDescriptor& descriptor);
  [[nodiscard]] Code AddFilter(SessionId session, const platform::Filter& filter,
                               const platform::SecurityDescriptor& descriptor, std::uint64_t& id);

  [[nodiscard]] Code DeleteProvider(SessionId session, const Guid& key);
  [[nodiscard]] Code DeleteSublayer(SessionId session, const Guid& key);
  [[nodiscard]] Code DeleteFilter(SessionId session, const Guid& key);

  // Replace the access list by the descriptor's; an empty descriptor sets the null one, which
  // grants everybody everything. The all-zero key means the container.
  Code SetProviderDacl(SessionId session, const Guid& key,
                       const platform::SecurityDescriptor& descriptor);
  Code SetSublayerDacl(SessionId session, const Guid& key,
                       const platform::SecurityDescriptor& descriptor);
  Code SetFilterDacl(SessionId session, const Guid& key,
                     const platform::SecurityDescriptor& descriptor);

  [[nodiscard]] Code GetProvider(SessionId session, const Guid& key, platform::Provider& provider);
  [[nodiscard]] Code GetSublayer(SessionId session, const Guid& key, platform::Sublayer& sublayer);
  [[nodiscard]] Code GetFilter(SessionId session, const Guid& key, platform::Filter& filter);

  // A write transaction excludes every other session's transactions and calls, a read-only one
  // their writes. Each call waits for the lock as long as its session was opened with.
  [[nodiscard]] Code Begin(SessionId session, std::uint32_t flags);
  [[nodiscard]] Code Commit(SessionId session);
  Code Abort(SessionId session);

  // A snapshot of all filters that the caller may read. Each fetch replaces `filters` by at most
  // `count` further ones.
  [[nodiscard]] Code OpenFilterEnum(SessionId session, EnumId& enumeration);
  [[nodiscard]] Code NextFilters(SessionId session, EnumId enumeration, std::uint32_t count,
                                 FilterList& filters);
  Code CloseFilterEnum(SessionId session, EnumId enumeration);

  // Has `callback` called on a thread of the engine's for each filter that another session adds or
  // deletes (kNotifyOnAdd, kNotifyOnDelete), after the commit.
  [[nodiscard]] Code SubscribeFilterChanges(SessionId session, std::uint32_t flags,
                                            ChangeCallback callback, SubscriptionId& subscription);
  // Waits for a running callback, unless it is called from within it. No callback of the
  // subscription begins after the return, unless the code is kTransactionInProgress.
  Code UnsubscribeFilterChanges(SessionId session, SubscriptionId subscription);

  // Waits until all changes committed and all events reported so far are delivered, for clocks that
  // don't run by themselves; returns at once within a callback.
  void WaitForNotifications() { notifier_.WaitForAll(); }

  // The machine's options, by their number (platform/net_events.h). They outlive a stop, a restart
  // and a power cut. Not for dynamic sessions, nor inside a transaction.
  [[nodiscard]] Code SetOption(SessionId session, std::uint32_t option, std::uint32_t value);
  [[nodiscard]] Code GetOption(SessionId session, std::uint32_t option, std::uint32_t& value);

  // Has `callback` called on a thread of the engine's for each event that the options let through,
  // in their order, from now on.
  [[nodiscard]] Code SubscribeNetEvents(SessionId session, NetEventCallback callback,
                                        SubscriptionId& subscription);
  // As UnsubscribeFilterChanges.
  Code UnsubscribeNetEvents(SessionId session, SubscriptionId subscription);

  // The number by which events name a layer.
  [[nodiscard]] Code LayerId(SessionId session, const Guid& layer, std::uint16_t& id);

  // What the events' times are taken from: 100 ns steps since 1601-01-01 UTC. Set before the first
  // verdict; without it they are 0.
  void SetClock(std::function<std::int64_t()> clock);

  // What the kernel decides, now; also while the engine service is stopped. If the options let its
  // event through, it is kept and told to the subscribers.
  [[nodiscard]] Verdict Classify(const Connection& connection);
  // What it would decide: the same verdict, of which nobody hears.
  [[nodiscard]] Verdict Judge(const Connection& connection);
  // The last events reported, oldest first; the platform keeps some 128 as well.
  [[nodiscard]] std::vector<NetEvent> NetEvents() const;
  // How many verdicts so far met a tied conflict.
  [[nodiscard]] std::uint64_t TiedConflicts() const;

  // The engine service stops: static and dynamic objects and all sessions are gone, calls answer
  // kEndpointNotRegistered. The kernel goes on enforcing the persistent filters.
  void Stop();
  // The engine service starts: persistent objects are in force, filters with new ids.
  void Start();
  // The machine restarts; boot-time filters alone are in force until Start.
  void Restart();
  [[nodiscard]] bool running() const;

  // The persistent and boot-time objects and the options as bytes.
  [[nodiscard]] platform::Bytes SavePersistent() const;
  // Takes the place of everything stored, as found by an engine that starts; ends all sessions.
  // In force are then, by whether the service runs, the persistent or the boot-time filters. False
  // for bytes that SavePersistent didn't make; nothing is changed then.
  [[nodiscard]] bool LoadPersistent(const platform::Bytes& bytes);

  // For the checks after a test: what is still open.
  [[nodiscard]] std::size_t open_sessions() const;
  [[nodiscard]] bool transaction_open() const;

  // Of all filters stored, without a session or access check, for tests and listings.
  [[nodiscard]] FilterList Filters() const;

 private:
  struct Enumeration {
    FilterList filters;
    std::size_t next = 0;
  };
  struct Session {
    AccessToken token;
    bool dynamic = false;
    bool aborted = false;  // the service stopped; the handle only waits to be closed
    std::uint32_t wait_ms = 0;
    std::map<EnumId, Enumeration> enumerations;
    std::map<SubscriptionId, Subscription> subscriptions;
  };
  enum class Need { kRead, kWrite };

  // Ends a subscription of this kind, for the public calls; takes mutex_ itself.
  template <typename Kind>
  Code Unsubscribe(SessionId session, SubscriptionId id);

  // All below need mutex_ held; a `lock` is released while waiting for the transaction lock.
  Code FindSession(SessionId id, Session*& session);
  // Finds the session and waits until no other session's transaction stands in the way.
  Code Enter(SessionId id, Need need, std::unique_lock<std::mutex>& lock, Session*& session);
  bool MayRun(SessionId id, Need need) const;
  bool InTransaction(SessionId id) const { return writer_ == id || readers_.contains(id); }
  // Puts in force what a call outside an explicit transaction did.
  void CommitImplicit(SessionId id);
  void Publish(SessionId id);
  void Notify(SessionId origin, bool added, const StoredFilter& filter);
  Verdict Decide(const Connection& connection);
  void Report(const Layer& layer, const Connection& connection, const Verdict& verdict);
  SubscriptionId Subscribe(Session& session, Subscription subscription);
  void EndTransaction(SessionId id);
  void AbortAllSessions();

  // The checks of a new object that don't depend on its kind; makes its head.
  Code PrepareObject(const Session& session, SessionId id, ObjectKind kind, Lifetime lifetime,
                     const platform::SecurityDescriptor& descriptor, ObjectHead& head) const;
  Code CheckLink(const Session& session, const ObjectHead& from, const ObjectHead& to) const;
  Code CheckProviderLink(const Session& session, const ObjectHead& head,
                         const std::optional<Guid>& provider) const;
  Code CheckFilterLinks(const Session& session, const ObjectHead& head,
                        const platform::Filter& filter) const;
  Code CheckDelete(const Session& session, SessionId id, const ObjectHead& head,
                   std::size_t references) const;
  Code DeleteObject(SessionId id, ObjectKind kind, const Guid& key);
  Code SetDacl(SessionId id, ObjectKind kind, const Guid& key,
               const platform::SecurityDescriptor& descriptor);
  // Has `copy` take over an object that the session may read.
  template <typename Copy>
  Code GetObject(SessionId id, ObjectKind kind, const Guid& key, const Copy& copy);
  Guid MakeKey();

  // What the service holds after a stop: its persistent and boot-time objects.
  ObjectList StoredObjects() const;
  void ReplaceObjects(ObjectList objects);
  void Revive(ObjectList& objects);
  void Enforce(Lifetime lifetime);

  mutable std::mutex mutex_;  // guards everything below but the notifier
  std::condition_variable transaction_ended_;
  bool running_ = true;
  std::uint64_t next_handle_ = 1;
  std::uint64_t next_filter_id_ = 0x10000;
  std::uint64_t next_key_ = 1;
  std::map<SessionId, Session> sessions_;
  SessionId writer_ = 0;         // holder of the explicit write transaction
  std::set<SessionId> readers_;  // holders of explicit read-only ones
  ObjectStore store_;
  KernelFilters kernel_;
  NetEventOptions options_;
  std::function<std::int64_t()> clock_;
  std::deque<std::shared_ptr<const NetEvent>> events_;
  std::uint64_t tied_conflicts_ = 0;
  Notifier notifier_;  // has its own mutex
};

}  // namespace simulation

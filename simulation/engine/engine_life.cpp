// The service's stops and starts, what is in force meanwhile, and verdicts.
#include <algorithm>
#include <utility>

#include "simulation/engine/engine.h"
#include "simulation/engine/persistence.h"

namespace simulation {
namespace {

constexpr std::size_t kEventsKept = 128;
constexpr std::uint32_t kProviderDisabled = 0x10;

}  // namespace

Verdict Engine::Classify(const Connection& connection) {
  const std::lock_guard lock(mutex_);
  Verdict verdict = kernel_.Classify(connection);
  if (verdict.tied_conflict) ++tied_conflicts_;
  if (const Layer* layer = FindLayer(connection.layer)) {
    if (events_.size() == kEventsKept) events_.pop_front();
    events_.push_back({.type = verdict.permit ? NetEventType::kAllow : NetEventType::kDrop,
                       .filter_id = verdict.filter == nullptr ? 0 : verdict.filter->id,
                       .layer_id = layer->id,
                       .connection = connection});
  }
  return verdict;
}

std::vector<NetEvent> Engine::NetEvents() const {
  const std::lock_guard lock(mutex_);
  return {events_.begin(), events_.end()};
}

std::uint64_t Engine::TiedConflicts() const {
  const std::lock_guard lock(mutex_);
  return tied_conflicts_;
}

FilterList Engine::Filters() const {
  const std::lock_guard lock(mutex_);
  FilterList filters;
  for (const StoredFilter& filter : store_.Committed().filters) {
    filters.push_back(filter.filter->record);
  }
  return filters;
}

void Engine::AbortAllSessions() {
  if (writer_ != 0) store_.Undo();
  writer_ = 0;
  readers_.clear();
  for (auto& [id, session] : sessions_) {
    session.aborted = true;
    session.enumerations.clear();
    for (const auto& [subscription, flags] : session.subscriptions) notifier_.Remove(subscription);
  }
  transaction_ended_.notify_all();
}

ObjectList Engine::StoredObjects() const {
  ObjectList objects = store_.Committed();
  const auto passing = [](const auto& object) { return !object.head.stored(); };
  std::erase_if(objects.providers, passing);
  std::erase_if(objects.sublayers, passing);
  std::erase_if(objects.filters, passing);
  return objects;
}

void Engine::ReplaceObjects(ObjectList objects) {
  ObjectStore fresh;
  fresh.KeepContainers(store_);
  for (StoredProvider& provider : objects.providers) {
    provider.references = 0;
    fresh.Insert(std::move(provider));
  }
  for (StoredSublayer& sublayer : objects.sublayers) {
    sublayer.references = 0;
    fresh.Insert(std::move(sublayer));
  }
  for (StoredFilter& filter : objects.filters) fresh.Insert(std::move(filter));
  fresh.ForgetLog();
  store_ = std::move(fresh);
}

void Engine::Enforce(Lifetime lifetime) {
  kernel_.Clear();
  for (const auto& [key, filter] : store_.filters()) {
    const bool disabled = (filter.filter->record->flags & platform::kFilterDisabled) != 0;
    if (filter.head.lifetime == lifetime && !disabled) kernel_.Add(filter.filter);
  }
}

// Gives the filters new ids, and marks those as disabled whose provider names a service that
// doesn't start by itself.
void Engine::Revive(ObjectList& objects) {
  std::set<Guid> unserved;
  for (StoredProvider& provider : objects.providers) {
    const std::wstring& service = provider.record.service_name;
    const bool served = service.empty() || auto_start_services_.count(service) != 0;
    provider.record.flags &= ~kProviderDisabled;
    if (served) continue;
    provider.record.flags |= kProviderDisabled;
    unserved.insert(provider.record.key);
  }
  for (StoredFilter& filter : objects.filters) {
    platform::Filter record = *filter.filter->record;
    record.id = next_filter_id_++;
    record.flags &= ~platform::kFilterDisabled;
    if (record.provider && unserved.count(*record.provider) != 0 &&
        filter.head.lifetime == Lifetime::kPersistent) {
      record.flags |= platform::kFilterDisabled;
    }
    filter.filter = MakeEnforced(std::move(record), filter.filter->sublayer_weight);
  }
}

void Engine::Stop() {
  const std::lock_guard lock(mutex_);
  if (!running_) return;
  AbortAllSessions();
  running_ = false;
  ReplaceObjects(StoredObjects());
  // Undocumented: what the kernel keeps. Persistent filters last until they are deleted.
  Enforce(Lifetime::kPersistent);
}

void Engine::Start() {
  const std::lock_guard lock(mutex_);
  if (running_) return;
  running_ = true;
  ObjectList objects = StoredObjects();
  Revive(objects);
  ReplaceObjects(std::move(objects));
  Enforce(Lifetime::kPersistent);
}

void Engine::Restart() {
  std::map<SessionId, Session> ended;
  {
    const std::lock_guard lock(mutex_);
    AbortAllSessions();
    running_ = false;
    ended.swap(sessions_);
    ReplaceObjects(StoredObjects());
    Enforce(Lifetime::kBootTime);
    events_.clear();
  }
  for (const auto& [id, session] : ended) {
    for (const auto& [subscription, flags] : session.subscriptions) {
      notifier_.WaitForCallback(subscription);
    }
  }
}

bool Engine::running() const {
  const std::lock_guard lock(mutex_);
  return running_;
}

void Engine::SetAutoStartServices(std::set<std::wstring> names) {
  const std::lock_guard lock(mutex_);
  auto_start_services_ = std::move(names);
}

platform::Bytes Engine::SavePersistent() const {
  const std::lock_guard lock(mutex_);
  return WriteObjects(StoredObjects());
}

bool Engine::LoadPersistent(const platform::Bytes& bytes) {
  ObjectList objects;
  if (!ReadObjects(bytes, objects)) return false;
  const std::lock_guard lock(mutex_);
  AbortAllSessions();
  Revive(objects);
  ReplaceObjects(std::move(objects));
  Enforce(running_ ? Lifetime::kPersistent : Lifetime::kBootTime);
  return true;
}

}  // namespace simulation

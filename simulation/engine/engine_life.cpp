// The service's stops and starts, and what is in force meanwhile.
#include <algorithm>
#include <utility>

#include "simulation/engine/engine.h"
#include "simulation/engine/persistence.h"

namespace simulation {
namespace {

constexpr std::uint32_t kProviderDisabled = 0x10;

}  // namespace

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
  for (auto& [session_id, session] : sessions_) {
    session.aborted = true;
    session.enumerations.clear();
    for (const auto& [id, subscription] : session.subscriptions) notifier_.Remove(id);
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

// Gives the filters new ids, and marks those as disabled whose provider names a service: the
// platform disables them unless that service starts by itself, and none does in the model.
void Engine::Revive(ObjectList& objects) {
  std::set<Guid> unserved;
  for (StoredProvider& provider : objects.providers) {
    provider.record.flags &= ~kProviderDisabled;
    if (provider.record.service_name.empty()) continue;
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
  for (const auto& [session_id, session] : ended) {
    for (const auto& [id, subscription] : session.subscriptions) notifier_.WaitForCallback(id);
  }
}

bool Engine::running() const {
  const std::lock_guard lock(mutex_);
  return running_;
}

platform::Bytes Engine::SavePersistent() const {
  const std::lock_guard lock(mutex_);
  return WritePersistent(StoredObjects(), options_);
}

bool Engine::LoadPersistent(const platform::Bytes& bytes) {
  ObjectList objects;
  NetEventOptions options;
  if (!ReadPersistent(bytes, objects, options)) return false;
  const std::lock_guard lock(mutex_);
  AbortAllSessions();
  options_ = options;
  Revive(objects);
  ReplaceObjects(std::move(objects));
  Enforce(running_ ? Lifetime::kPersistent : Lifetime::kBootTime);
  return true;
}

}  // namespace simulation

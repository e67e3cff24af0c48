#include "simulation/engine/object_store.h"

#include <algorithm>
#include <utility>

namespace simulation {
namespace {

std::shared_ptr<const ObjectSecurity> WithDacl(const ObjectSecurity& security,
                                               std::optional<std::vector<AccessEntry>> dacl) {
  auto changed = std::make_shared<ObjectSecurity>(security);
  changed->dacl = std::move(dacl);
  return changed;
}

Guid KeyOf(const StoredObject& object) {
  if (const auto* provider = std::get_if<StoredProvider>(&object)) return provider->record.key;
  if (const auto* sublayer = std::get_if<StoredSublayer>(&object)) return sublayer->record.key;
  return std::get<StoredFilter>(object).filter->record->key;
}

template <typename Map>
auto Find(const Map& map, const Guid& key) {
  const auto found = map.find(key);
  return found == map.end() ? nullptr : &found->second;
}

template <typename Map>
typename Map::mapped_type TakeFrom(Map& map, const Guid& key) {
  auto node = map.extract(key);
  return std::move(node.mapped());
}

// Collected first, since erasing changes the map.
template <typename Map>
std::vector<Guid> KeysOfSession(const Map& map, SessionId session) {
  std::vector<Guid> keys;
  for (const auto& [key, object] : map) {
    if (object.head.lifetime == Lifetime::kDynamic && object.head.session == session) {
      keys.push_back(key);
    }
  }
  return keys;
}

template <typename Map>
auto ValuesOf(const Map& map) {
  std::vector<typename Map::mapped_type> values;
  for (const auto& [key, object] : map) {
    if (object.head.lifetime != Lifetime::kBuiltin) values.push_back(object);
  }
  return values;
}

}  // namespace

ObjectStore::ObjectStore() : containers_(kObjectKinds, DefaultSecurity()) {
  StoredSublayer universal;
  universal.record.key = kUniversalSublayer;
  universal.record.name = L"Universal sublayer";
  universal.record.weight = kUniversalWeight;
  universal.head.lifetime = Lifetime::kBuiltin;
  universal.head.security = std::make_shared<ObjectSecurity>(DefaultSecurity());
  Put(universal);
}

const StoredProvider* ObjectStore::FindProvider(const Guid& key) const {
  return Find(providers_, key);
}

const StoredSublayer* ObjectStore::FindSublayer(const Guid& key) const {
  return Find(sublayers_, key);
}

const StoredFilter* ObjectStore::FindFilter(const Guid& key) const {
  return Find(filters_, key);
}

void ObjectStore::Insert(StoredObject object) {
  Put(object);
  log_.push_back({true, std::move(object)});
}

void ObjectStore::Erase(ObjectKind kind, const Guid& key) {
  log_.push_back({false, Take(kind, key)});
}

std::uint16_t ObjectStore::FreeSublayerWeight(std::uint16_t wanted) const {
  for (int distance = 0; distance <= UINT16_MAX; ++distance) {
    for (const int weight : {wanted - distance, wanted + distance}) {
      if (weight < 0 || weight > UINT16_MAX) continue;
      const auto candidate = static_cast<std::uint16_t>(weight);
      if (sublayer_weights_.count(candidate) == 0) return candidate;
    }
  }
  return wanted;
}

const ObjectSecurity& ObjectStore::container(ObjectKind kind) const {
  return containers_[static_cast<std::size_t>(kind)];
}

void ObjectStore::SetContainerDacl(ObjectKind kind, std::optional<std::vector<AccessEntry>> dacl) {
  containers_[static_cast<std::size_t>(kind)].dacl = std::move(dacl);
}

const ObjectHead* ObjectStore::FindHead(ObjectKind kind, const Guid& key) const {
  switch (kind) {
    case ObjectKind::kProvider: {
      const StoredProvider* provider = FindProvider(key);
      return provider == nullptr ? nullptr : &provider->head;
    }
    case ObjectKind::kSublayer: {
      const StoredSublayer* sublayer = FindSublayer(key);
      return sublayer == nullptr ? nullptr : &sublayer->head;
    }
    default: {
      const StoredFilter* filter = FindFilter(key);
      return filter == nullptr ? nullptr : &filter->head;
    }
  }
}

void ObjectStore::SetDacl(ObjectKind kind, const Guid& key,
                          std::optional<std::vector<AccessEntry>> dacl) {
  const auto set = [&](auto& map) {
    const auto found = map.find(key);
    if (found == map.end()) return;
    ObjectHead& head = found->second.head;
    head.security = WithDacl(*head.security, std::move(dacl));
  };
  switch (kind) {
    case ObjectKind::kProvider:
      return set(providers_);
    case ObjectKind::kSublayer:
      return set(sublayers_);
    default:
      return set(filters_);
  }
}

void ObjectStore::Undo() {
  for (auto change = log_.rbegin(); change != log_.rend(); ++change) {
    if (change->added) {
      Take(static_cast<ObjectKind>(change->object.index()), KeyOf(change->object));
    } else {
      Put(change->object);
    }
  }
  log_.clear();
}

std::vector<StoredFilter> ObjectStore::TakeDynamic(SessionId session) {
  std::vector<StoredFilter> taken;
  for (const Guid& key : KeysOfSession(filters_, session)) {
    taken.push_back(std::get<StoredFilter>(Take(ObjectKind::kFilter, key)));
  }
  for (const Guid& key : KeysOfSession(sublayers_, session)) Take(ObjectKind::kSublayer, key);
  for (const Guid& key : KeysOfSession(providers_, session)) Take(ObjectKind::kProvider, key);
  return taken;
}

ObjectList ObjectStore::Committed() const {
  if (log_.empty()) return {ValuesOf(providers_), ValuesOf(sublayers_), ValuesOf(filters_)};
  ObjectStore before = *this;
  before.Undo();
  return before.Committed();
}

void ObjectStore::Put(const StoredObject& object) {
  if (const auto* provider = std::get_if<StoredProvider>(&object)) {
    providers_[provider->record.key] = *provider;
  } else if (const auto* sublayer = std::get_if<StoredSublayer>(&object)) {
    sublayers_[sublayer->record.key] = *sublayer;
    sublayer_weights_.insert(sublayer->record.weight);
  } else {
    const StoredFilter& filter = std::get<StoredFilter>(object);
    filters_[filter.filter->record->key] = filter;
  }
  CountReferences(object, true);
}

StoredObject ObjectStore::Take(ObjectKind kind, const Guid& key) {
  StoredObject object;
  if (kind == ObjectKind::kProvider) {
    object = TakeFrom(providers_, key);
  } else if (kind == ObjectKind::kSublayer) {
    object = TakeFrom(sublayers_, key);
    sublayer_weights_.erase(std::get<StoredSublayer>(object).record.weight);
  } else {
    object = TakeFrom(filters_, key);
  }
  CountReferences(object, false);
  return object;
}

void ObjectStore::CountReferences(const StoredObject& object, bool added) {
  std::optional<Guid> provider;
  if (const auto* sublayer = std::get_if<StoredSublayer>(&object)) {
    provider = sublayer->record.provider;
  } else if (const auto* filter = std::get_if<StoredFilter>(&object)) {
    provider = filter->filter->record->provider;
    auto& references = sublayers_.at(filter->filter->record->sublayer).references;
    added ? ++references : --references;
  }
  if (!provider) return;
  auto& references = providers_.at(*provider).references;
  added ? ++references : --references;
}

}  // namespace simulation

#include "simulation/engine/persistence.h"

#include <algorithm>
#include <set>
#include <utility>

#include "platform/net_events.h"
#include "simulation/engine/filter_rules.h"
#include "simulation/engine/wire.h"

namespace simulation {
namespace {

constexpr std::uint32_t kFormat = 0x32504645;  // "EFP2"
constexpr std::size_t kSmallestObject = 32;    // what a count of objects must be followed by
constexpr std::size_t kSmallestEntry = 9;

void PutHead(WireWriter& writer, const ObjectHead& head) {
  writer.U8(static_cast<std::uint8_t>(head.lifetime));
  writer.Blob(head.security->owner);
  writer.U8(head.security->dacl ? 1 : 0);
  if (!head.security->dacl) return;
  writer.U32(static_cast<std::uint32_t>(head.security->dacl->size()));
  for (const AccessEntry& entry : *head.security->dacl) {
    writer.U8(entry.allow ? 1 : 0);
    writer.U32(entry.mask);
    writer.Blob(entry.sid);
  }
}

ObjectHead TakeHead(WireReader& reader) {
  ObjectHead head;
  const std::uint8_t lifetime = reader.U8();
  head.lifetime = static_cast<Lifetime>(lifetime);
  if (!head.stored()) reader.Fail();
  auto security = std::make_shared<ObjectSecurity>();
  security->owner = reader.Blob();
  if (reader.U8() != 0) {
    security->dacl.emplace();
    const std::size_t count = reader.Count(kSmallestEntry);
    for (std::size_t i = 0; i < count && reader.ok(); ++i) {
      AccessEntry& entry = security->dacl->emplace_back();
      entry.allow = reader.U8() != 0;
      entry.mask = reader.U32();
      entry.sid = reader.Blob();
    }
  }
  head.security = std::move(security);
  return head;
}

// Reads a counted list, a member at a time.
template <typename Take>
void TakeList(WireReader& reader, Take take) {
  const std::size_t count = reader.Count(kSmallestObject);
  for (std::size_t i = 0; i < count && reader.ok(); ++i) take();
}

void TakeFilters(WireReader& reader, ObjectList& objects) {
  TakeList(reader, [&] {
    const ObjectHead head = TakeHead(reader);
    platform::Filter record = TakeFilter(reader);
    // The engine itself marks filters as disabled, which nobody may ask for.
    platform::Filter asked = record;
    asked.flags &= ~platform::kFilterDisabled;
    if (!reader.ok() || ValidateFilter(asked) != platform::kSuccess) return reader.Fail();
    std::uint16_t weight = kUniversalWeight;
    if (record.sublayer != kUniversalSublayer) {
      const auto found = std::find_if(
          objects.sublayers.begin(), objects.sublayers.end(),
          [&](const StoredSublayer& sublayer) { return sublayer.record.key == record.sublayer; });
      if (found == objects.sublayers.end()) return reader.Fail();
      weight = found->record.weight;
    }
    objects.filters.push_back({MakeEnforced(std::move(record), weight), head});
  });
}

// Whether each key is there once and each provider that is named exists.
bool HangsTogether(const ObjectList& objects) {
  std::set<Guid> providers;
  std::set<Guid> sublayers = {kUniversalSublayer};
  std::set<Guid> filters;
  const auto known = [&](const std::optional<Guid>& provider) {
    return !provider || providers.count(*provider) != 0;
  };
  for (const StoredProvider& provider : objects.providers) {
    if (!providers.insert(provider.record.key).second) return false;
  }
  for (const StoredSublayer& sublayer : objects.sublayers) {
    if (!sublayers.insert(sublayer.record.key).second || !known(sublayer.record.provider)) {
      return false;
    }
  }
  return std::all_of(objects.filters.begin(), objects.filters.end(), [&](const StoredFilter& f) {
    return filters.insert(f.filter->record->key).second && known(f.filter->record->provider);
  });
}

}  // namespace

Bytes WritePersistent(const ObjectList& objects, const NetEventOptions& options) {
  Bytes bytes;
  WireWriter writer(bytes);
  const auto put_list = [&](const auto& list, auto record_of) {
    writer.U32(static_cast<std::uint32_t>(list.size()));
    for (const auto& object : list) {
      PutHead(writer, object.head);
      Put(writer, record_of(object));
    }
  };
  writer.U32(kFormat);
  const auto record = [](const auto& object) -> const auto& {
    return object.record;
  };
  put_list(objects.providers, record);
  put_list(objects.sublayers, record);
  put_list(objects.filters, [](const StoredFilter& object) -> const platform::Filter& {
    return *object.filter->record;
  });
  writer.U32(options.collect ? 1 : 0);
  writer.U32(options.keywords);
  return bytes;
}

bool ReadPersistent(const Bytes& bytes, ObjectList& objects, NetEventOptions& options) {
  WireReader reader(bytes.data(), bytes.size());
  ObjectList read;
  if (reader.U32() != kFormat) return false;
  TakeList(reader, [&] {
    const ObjectHead head = TakeHead(reader);
    read.providers.push_back({TakeProvider(reader), head, 0});
  });
  TakeList(reader, [&] {
    const ObjectHead head = TakeHead(reader);
    read.sublayers.push_back({TakeSublayer(reader), head, 0});
  });
  TakeFilters(reader, read);
  NetEventOptions read_options;
  for (const std::uint32_t option : {platform::kCollectNetEvents, platform::kNetEventKeywords}) {
    if (read_options.Set(option, reader.U32()) != platform::kSuccess) return false;
  }
  if (!reader.Finished() || !HangsTogether(read)) return false;
  objects = std::move(read);
  options = read_options;
  return true;
}

}  // namespace simulation

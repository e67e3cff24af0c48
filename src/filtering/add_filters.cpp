#include "filtering/add_filters.h"

#include <utility>

#include "core/error_text.h"
#include "filtering/lock_descriptors.h"
#include "platform/wfp.h"

namespace kestrelon {
namespace {

// Without a key of its own a filter could not be recorded, so failing to make one is a refusal.
platform::Code AddWithNewKey(platform::EngineHandle engine, platform::Filter& filter,
                             std::uint64_t& id) {
  if (const platform::Code code = platform::NewGuid(filter.key)) return code;
  return platform::AddFilter(engine, filter, LockDescriptor(), id);
}

}  // namespace

bool AddFilter(AddContext& context, platform::Filter& filter, FilterTag& tag) {
  std::uint64_t id = 0;
  const platform::Code code = AddWithNewKey(context.engine, filter, id);
  if (code != platform::kSuccess) {
    context.error = L"FwpmFilterAdd0 (" + filter.name + L"): " + ErrorText(code);
    return false;
  }
  context.added_keys.push_back(filter.key);
  context.tags.insert_or_assign(id, std::move(tag));
  return true;
}

FilterSink AddingSink(AddContext& context) {
  return [&context](platform::Filter& filter, FilterTag& tag) {
    return AddFilter(context, filter, tag);
  };
}

}  // namespace kestrelon
